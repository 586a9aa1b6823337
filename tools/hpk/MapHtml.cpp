#include <algorithm>
#include <string>

#include "tools/hpk/MapPicture.h"

namespace vantry_tools {

// The page has the regions as text that its script parses: sizes in base 36, a digit for each kind,
// and names, a line each. Begins follow from the sizes, as regions have no gaps.

static constexpr const char* head = R"(<!doctype html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<style>
:root { color-scheme: light dark; --k0: #bf3989; --k1: #8250df; --k2: #80ccff; --k3: #218bff;
  --k4: #0550ae; --k5: #d0d7de; --line: #d0d7de; --mark: #000 }
@media (prefers-color-scheme: dark) { :root { --k0: #f778ba; --k1: #a371f7; --k2: #a5d6ff;
  --k3: #388bfd; --k4: #1f5fbf; --k5: #3d444d; --line: #3d444d; --mark: #fff } }
body { font: 14px system-ui, sans-serif; margin: 0; height: 100vh; display: flex;
  flex-direction: column; background: Canvas; color: CanvasText }
h1 { font-size: 17px; margin: 10px 14px 4px } #bar, #legend { margin: 2px 14px }
#legend span { margin-right: 14px; white-space: nowrap }
#legend i { display: inline-block; width: 12px; height: 12px; margin-right: 5px }
canvas { margin: 6px 14px; height: 340px; cursor: crosshair; touch-action: none }
#tip { min-height: 1.4em; margin: 0 14px; font-family: ui-monospace, monospace;
  overflow-wrap: anywhere }
#find { width: min(30em, 60vw) }
#list { flex: 1; min-height: 120px; overflow: auto; margin: 6px 14px 10px; position: relative;
  border: 1px solid var(--line); font: 12px/20px ui-monospace, monospace }
#list div { position: absolute; white-space: pre; height: 20px; cursor: pointer }
#list div:hover { text-decoration: underline }
</style>
)";

static constexpr const char* body = R"(<div id="legend"></div>
<div id="bar"><button id="all">Show all</button> Scroll to zoom, drag to move. <span id="range"></span></div>
<canvas id="map"></canvas><div id="tip"></div>
<div id="bar"><input id="find" placeholder="Filter keys" aria-label="Filter keys">
<span id="count"></span></div><div id="list"><p id="space"></p></div>
)";

static constexpr const char* script = R"(<script>
'use strict';
const get = id => document.getElementById(id), text = id => get(id).textContent.trim();
const sizes = text('sizes').split(' '), kinds = text('kinds'), total = sizes.length;
const names = get('names').textContent.slice(1).split('\n').map(n => n.replaceAll('\x01', '<'));
const begins = new Float64Array(total + 1);
for (let i = 0; i < total; ++i) begins[i + 1] = begins[i] + parseInt(sizes[i], 36);
const end = begins[total], titles = text('titles').split('\n'), sum = titles.map(() => [0, 0]);
for (let i = 0; i < total; ++i) {
  const s = sum[+kinds[i]]; s[0] += 1; s[1] += begins[i + 1] - begins[i];
}
titles.forEach((title, kind) => {
  const entry = document.createElement('span'), box = document.createElement('i');
  box.style.background = `var(--k${kind})`;
  entry.append(box, `${title}: ${sum[kind][0]}, ${sum[kind][1]} bytes`);
  get('legend').append(entry);
});
const canvas = get('map'), rows = 14, step = 24, height = 18;
let from = 0, to = end, marked = -1, shown = [], width = 0, queued = false;

function regionAt(offset) {
  let low = 0, high = total;
  while (high - low > 1) {
    const middle = (low + high) >> 1;
    if (begins[middle] <= offset) low = middle; else high = middle;
  }
  return low;
}
function describe(i) {
  return `${names[i] || titles[+kinds[i]]}  offset ${begins[i]}, ${begins[i + 1] - begins[i]} bytes` +
    (names[i] ? ` (${titles[+kinds[i]]})` : '');
}
function draw() {
  queued = false;
  const scale = devicePixelRatio, style = getComputedStyle(document.documentElement);
  width = Math.max(1, canvas.parentElement.clientWidth - 28);
  canvas.style.width = width + 'px';
  canvas.width = width * scale; canvas.height = rows * step * scale;
  canvas.style.height = rows * step + 'px';
  const pen = canvas.getContext('2d'), perPixel = (to - from) / (rows * width);
  pen.scale(scale, scale);
  const colors = titles.map((_, k) => style.getPropertyValue('--k' + k));
  const mark = style.getPropertyValue('--mark');
  for (let row = 0; row < rows; ++row) {
    const start = from + row * width * perPixel;
    for (let x = 0; x < width;) {
      const offset = start + (x + 0.5) * perPixel;
      const i = regionAt(offset), last = (begins[i + 1] - start) / perPixel;
      const next = Math.min(width, Math.max(x + 1, Math.ceil(last - 0.5)));
      pen.fillStyle = i === marked ? mark : colors[+kinds[i]];
      pen.fillRect(x, row * step, next - x - (next - x > 3 ? 0.6 : 0), height);
      x = next;
    }
  }
  get('range').textContent = `Bytes ${Math.floor(from)} to ${Math.ceil(to)} of ${end}`;
}
function redraw() { if (!queued) { queued = true; requestAnimationFrame(draw); } }
function view(start, length) {
  length = Math.min(end, Math.max(length, rows));
  from = Math.min(Math.max(0, start), end - length); to = from + length; redraw();
}
function offsetAt(event) {
  const box = canvas.getBoundingClientRect();
  const row = Math.min(rows - 1, Math.max(0, Math.floor((event.clientY - box.top) / step)));
  const x = Math.min(width - 1, Math.max(0, event.clientX - box.left));
  return from + (row * width + x) * (to - from) / (rows * width);
}
canvas.addEventListener('wheel', event => {
  event.preventDefault();
  const at = offsetAt(event), factor = Math.exp(event.deltaY * 0.002);
  view(at - (at - from) * factor, (to - from) * factor);
}, {passive: false});
let held = null;
canvas.addEventListener('pointerdown', event => {
  held = {at: offsetAt(event), moved: false}; canvas.setPointerCapture(event.pointerId);
});
canvas.addEventListener('pointermove', event => {
  const at = offsetAt(event);
  if (held && Math.abs(at - held.at) > (to - from) / (rows * width) * 3) {
    held.moved = true; view(from + held.at - at, to - from);
  } else if (!held) {
    const i = regionAt(at);
    get('tip').textContent = describe(i);
    if (i !== marked) { marked = i; redraw(); }
  }
});
canvas.addEventListener('pointerup', event => {
  if (held && !held.moved) {
    const i = regionAt(held.at), row = shown.indexOf(i);
    if (row >= 0) get('list').scrollTop = row / shown.length * get('space').offsetHeight;
  }
  held = null;
});
canvas.addEventListener('pointerleave', () => { marked = -1; redraw(); });
get('all').onclick = () => view(0, end);

const list = get('list'), line = 20, tallest = 8e6;  // browsers limit the height of an element
function fill() {
  const space = get('space'), full = shown.length * line;
  space.style.cssText = `margin: 0; width: 1px; height: ${Math.min(full, tallest)}px`;
  const visible = Math.ceil(list.clientHeight / line) + 1;
  const reach = Math.max(1, Math.min(full, tallest) - list.clientHeight);
  const first = Math.max(0, Math.round(list.scrollTop / reach *
    Math.max(0, shown.length - visible + 1)));
  list.querySelectorAll('div').forEach(row => row.remove());
  for (let n = 0; n < visible && first + n < shown.length; ++n) {
    const i = shown[first + n], row = document.createElement('div');
    row.textContent = String(begins[i]).padStart(11) + String(begins[i + 1] - begins[i]).padStart(11) +
      '  ' + names[i];
    row.style.top = list.scrollTop + n * line + 'px';
    row.onclick = () => {
      const size = begins[i + 1] - begins[i];
      marked = i; view(begins[i] - size * 2, size * 5); get('tip').textContent = describe(i);
    };
    list.append(row);
  }
}
function filter() {
  const part = get('find').value;
  shown = [];
  for (let i = 0; i < total; ++i) if (names[i] && names[i].includes(part)) shown.push(i);
  get('count').textContent = `${shown.length} items`;
  list.scrollTop = 0; fill();
}
let timer = 0;
get('find').oninput = () => { clearTimeout(timer); timer = setTimeout(filter, 120); };
list.onscroll = fill;
addEventListener('resize', () => { redraw(); fill(); });
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', redraw);
filter(); draw();
</script>
</body></html>
)";

static std::string Base36(std::uint64_t number) {
    std::string digits;
    do {
        digits += "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36];
        number /= 36;
    } while (number != 0);
    return {digits.rbegin(), digits.rend()};
}

// Text that a script element holds as it is: without "<", it cannot end the element.
static std::string Data(const char* id, const std::string& text) {
    return std::string("<script type=\"text/plain\" id=\"") + id + "\">\n" + text + "</script>\n";
}

std::string DrawMapAsHtml(const Layout& layout, const std::string& title) {
    std::string sizes;
    std::string kinds;
    std::string names;
    for (const Layout::Region& region : layout.regions) {
        sizes += Base36(region.Size()) + ' ';
        kinds += static_cast<char>('0' + region.kind);
        std::string name = region.name;
        std::replace(name.begin(), name.end(), '<', '\1');
        names += name + '\n';
    }
    std::string titles;
    for (const char* const kind : Layout::kindNames) {
        titles += std::string(kind) + '\n';
    }
    return std::string(head) + "<title>" + EscapeMarkup(title) + "</title></head>\n<body><h1>" +
           EscapeMarkup(title) + "</h1>\n" + body + Data("sizes", sizes) + Data("kinds", kinds) +
           Data("titles", titles) + Data("names", names) + script;
}

}  // namespace vantry_tools
