// What all parts of the page share. Text from a camera becomes text nodes only.

const frozen = document.getElementById('frozen') ? JSON.parse(document.getElementById('frozen').textContent) : null;
const token = new URLSearchParams(location.search).get('token') || '';
let known = { cameras: [], targets: [], lines: [] };

// el('button', {class: 'main', onclick: f}, 'text', child...)
function el(tag, attributes, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes || {})) {
    if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
    else if (value === true) node.setAttribute(name, '');
    else if (value !== false && value !== undefined) node.setAttribute(name, value);
  }
  node.append(...children.filter(c => c !== null && c !== undefined));
  return node;
}

function card(title, note, ...children) {
  return el('section', { class: 'card ' + title.toLowerCase(), 'aria-label': title }, el('h3', {}, title, note), ...children);
}

// Sets a node's text only where it differs: a screen reader hears changes, not repeats.
function say(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

function seconds(value) { return value.toFixed(3) + ' s'; }
function size(bytes) {
  return bytes >= 1 << 20 ? +(bytes / (1 << 20)).toFixed(1) + ' MiB' : bytes >= 1024 ? Math.round(bytes / 1024) + ' KiB' : bytes + ' B';
}
function decibels(level) { return level ? (20 * Math.log10(level / 32768)).toFixed(1) + ' dB' : 'silent'; }
function color(name) { return getComputedStyle(document.documentElement).getPropertyValue('--' + name).trim(); }

// A canvas as sharp as the screen; returns its context in CSS pixels, cleared.
function sharp(canvas, width, height) {
  const ratio = window.devicePixelRatio || 1;
  if (canvas.width !== Math.round(width * ratio) || canvas.height !== Math.round(height * ratio)) {
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
  }
  if (canvas.style.height !== height + 'px') canvas.style.height = height + 'px';
  const pen = canvas.getContext('2d');
  pen.setTransform(ratio, 0, 0, ratio, 0, 0);
  pen.clearRect(0, 0, width, height);
  return pen;
}

function address(path, parameters) {
  return path + '?' + new URLSearchParams({ ...parameters, token });
}

async function ask(path, parameters, options) {
  const response = await fetch(address(path, parameters), options);
  const text = await response.text();
  if (!response.ok) throw new Error(text || response.statusText);
  return text;
}

function act(camera, action) {
  return ask('/action', { camera: camera.index }, {
    method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(action)
  });
}
