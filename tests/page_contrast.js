// Texts whose contrast is below the 4.5 of WCAG's level AA; run in the page.
const parse = (text) => { const part = text.match(/[\d.]+/g).map(Number); return part.length < 4 ? [...part, 1] : part; };
const over = (front, back) => front.slice(0, 3).map((part, at) => part * front[3] + back[at] * (1 - front[3]));
const ground = (node) => {
  const colour = parse(getComputedStyle(node).backgroundColor);
  return colour[3] === 1 || !node.parentElement ? colour : [...over(colour, ground(node.parentElement)), 1];
};
const light = (colour) => colour.slice(0, 3).map((part) => part / 255)
  .map((part) => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
  .reduce((sum, part, at) => sum + part * [0.2126, 0.7152, 0.0722][at], 0);
const faint = new Set();
for (const node of document.querySelectorAll("body *")) {
  const text = [...node.childNodes].filter((child) => child.nodeType === 3).map((child) => child.data.trim()).join("");
  if (!text || !node.checkVisibility()) continue;
  const [a, b] = [light(parse(getComputedStyle(node).color)), light(ground(node))];
  const ratio = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
  if (ratio < 4.5) faint.add(`${node.tagName}.${node.className} ${text.slice(0, 20)}: ${ratio.toFixed(2)}`);
}
return [...faint].slice(0, 9);
