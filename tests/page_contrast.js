// Texts whose contrast is below the 4.5 of WCAG's level AA; run in the page.
const canvas = document.createElement("canvas").getContext("2d", {willReadFrequently: true});
const luminance = (colours) => { // of all of them, painted over each other
  for (const colour of colours) canvas.fillStyle = colour, canvas.fillRect(0, 0, 1, 1);
  const [red, green, blue] = [...canvas.getImageData(0, 0, 1, 1).data].map((part) => part / 255)
    .map((part) => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4);
  return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
};
const grounds = (node) => node ? [...grounds(node.parentElement), getComputedStyle(node).backgroundColor] : [];
const faint = new Set();
for (const node of document.querySelectorAll("body *")) {
  const text = [...node.childNodes].filter((child) => child.nodeType === 3).map((child) => child.data.trim()).join("");
  if (!text || !node.checkVisibility()) continue;
  const both = [grounds(node), [...grounds(node), getComputedStyle(node).color]].map(luminance);
  const ratio = (Math.max(...both) + 0.05) / (Math.min(...both) + 0.05);
  if (ratio < 4.5) faint.add(`${node.tagName}.${node.className} ${text.slice(0, 20)}: ${ratio.toFixed(2)}`);
}
return [...faint].slice(0, 9);
