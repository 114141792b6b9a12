"use strict";
// What both views are made of. All text goes into the page by textContent, so none becomes markup.

/** An element with attributes and children, which are elements or texts. */
function element(tag, attributes = {}, ...children) {
  const isDrawing = ["svg", "path", "rect", "circle"].includes(tag);
  const made = isDrawing ? document.createElementNS("http://www.w3.org/2000/svg", tag)
    : document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  made.append(...children);
  return made;
}

function setText(node, text) {
  if (node.textContent === text) return false;
  node.textContent = text;
  return true;
}

function setAttribute(node, name, value) {
  if (node.getAttribute(name) === value) return false;
  node.setAttribute(name, value);
  return true;
}

/** Lets a change light up for a moment; it fades only for those who do not mind motion. */
function lightUp(node) {
  for (const animation of node.getAnimations()) animation.cancel();
  const isStill = matchMedia("(prefers-reduced-motion: reduce)").matches;
  node.animate([{backgroundColor: "var(--flash)"}, {backgroundColor: "transparent"}],
    {duration: 2500, easing: isStill ? "step-end" : "ease-in"});
}
