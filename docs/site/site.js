// Draws the drawings in the colours of the page, and again when those change. The drawing library is large, so only pages
// with drawings load it.
const drawings = [...document.querySelectorAll('.drawing')].map((place) => ({ place, source: place.textContent }));

async function draw() {
  const isDark = document.body.dataset.mdColorScheme === 'slate';
  mermaid.initialize({ startOnLoad: false, theme: isDark ? 'dark' : 'neutral', flowchart: { wrappingWidth: 400 } });
  for (const [number, { place, source }] of drawings.entries()) {
    place.innerHTML = (await mermaid.render(`drawing-${number}`, source)).svg;
  }
}

if (drawings.length > 0) {
  const script = document.createElement('script');
  script.src = new URL('mermaid.min.js', document.currentScript.src).href;
  script.addEventListener('load', () => {
    draw();
    new MutationObserver(draw).observe(document.body, { attributeFilter: ['data-md-color-scheme'] });
  });
  document.head.append(script);
}
