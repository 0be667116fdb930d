'use strict';
const data = JSON.parse(document.getElementById('data').textContent);
const get = id => document.getElementById(id);
const bandHeight = 84, gap = 18, left = 48, forms = data.forms.length;
const names = new Map(data.names.map(n => [n.name, n]));
const unnamed = {name: 'without a name', sign: '?', color: 'bad', left: 'A state that no name fits.', person: ''};
const nameOf = point => names.get(data.classes[point.state].state) || unnamed;
const rank = {good: 0, old: 1, warn: 2, bad: 3};
const points = [];
for (let i = 0; i < data.points.length; i += 3)
  points.push({step: data.points[i], form: data.points[i + 1], state: data.points[i + 2]});
const parts = [...new Set(data.steps.map(s => s[0]))].sort();
let chosen = Math.max(0, points.findIndex(p => nameOf(p).color === 'bad'));

function element(tag, words, cls) {
  const e = document.createElement(tag);
  if (words !== undefined) e.textContent = words;
  if (cls) e.className = cls;
  return e;
}
const mark = row => element('span', row.sign, 'mark ' + row.color);
const color = name => getComputedStyle(document.documentElement).getPropertyValue('--' + name).trim();
const pointName = p => `${p.step + 1}/${data.forms[p.form][0]}`;
const again = counts => Object.entries(counts).map(([name, n]) => `${name} (${n} ${n === 1 ? 'run' : 'runs'})`).join(', ') || 'not run';

function story(p) {
  const box = get('story'), step = data.steps[p.step], row = nameOf(p), kind = data.classes[p.state];
  box.replaceChildren();
  const line = (head, words) => { const l = element('p'); l.append(element('b', head + ' '), words); box.append(l); };
  const title = element('p');
  title.append(mark(row), ' ', element('b', row.name), ` (point ${pointName(p)})`);
  box.append(title);
  if (step) line('The power fails', `${data.forms[p.form][1]}: operation ${p.step + 1} of ${data.steps.length}, ${step[1]} of ` +
    `${step[3]} bytes at 0x${step[2].toString(16)} of mtd${step[0]} by ${step[5]}, ${(step[4] - data.steps[0][4]).toFixed(2)} s after the first.`);
  line('Left:', `${row.left} (${kind.words})`);
  line('After the same command:', again(kind.again));
  line('What a person does:', row.person);
  for (const b of data.broken) if (b.point.split(',')[0] === pointName(p)) line('Broken promise:', `${b.text}: ${b.what}`);
}

const canvas = get('map');
let columns = []; // per band and pixel column, the worst point of each form
function draw() {
  const width = canvas.clientWidth, height = parts.length * (bandHeight + gap) + 4, ratio = window.devicePixelRatio || 1;
  canvas.style.height = height + 'px';
  canvas.width = width * ratio; canvas.height = height * ratio;
  const c = canvas.getContext('2d');
  c.scale(ratio, ratio);
  c.font = '12px ui-monospace, "DejaVu Sans Mono", monospace';
  const wide = (width - left) / Math.max(1, data.steps.length), rows = bandHeight / forms;
  parts.forEach((part, band) => {
    c.fillStyle = color('text'); c.fillText('mtd' + part, 0, band * (bandHeight + gap) + bandHeight / 2);
    c.fillStyle = color('well'); c.fillRect(left, band * (bandHeight + gap), width - left, bandHeight);
  });
  const worst = new Map();
  points.forEach((p, i) => {
    const band = parts.indexOf(data.steps[p.step] ? data.steps[p.step][0] : parts[0]);
    const key = (band * forms + p.form) * 65536 + Math.floor(p.step * wide);
    const known = worst.get(key);
    if (known === undefined || rank[nameOf(p).color] > rank[nameOf(points[known]).color]) worst.set(key, i);
  });
  for (const i of worst.values()) {
    const p = points[i], band = parts.indexOf(data.steps[p.step][0]), row = nameOf(p);
    c.fillStyle = color(row.color);
    c.fillRect(left + p.step * wide, band * (bandHeight + gap) + p.form * rows, Math.max(1, wide - (wide > 4 ? 1 : 0)), rows - 1);
  }
  signs(c, wide, rows);
  const p = points[chosen];
  if (p && data.steps.length) {
    c.strokeStyle = color('text'); c.lineWidth = 2;
    c.strokeRect(left + p.step * wide - 2, parts.indexOf(data.steps[p.step][0]) * (bandHeight + gap) + p.form * rows - 2, Math.max(1, wide) + 4, rows + 3);
  }
}
// The sign of a state below the band, where it begins.
function signs(c, wide, rows) {
  const last = {}, end = {};
  for (const p of points) {
    if (data.forms[p.form][0] !== 'after' || !data.steps[p.step]) continue;
    const band = parts.indexOf(data.steps[p.step][0]), row = nameOf(p), x = left + p.step * wide;
    if (last[band] === row.sign || x < (end[band] || 0)) continue;
    last[band] = row.sign; end[band] = x + 12;
    c.fillStyle = color(row.color); c.fillText(row.sign, x, band * (bandHeight + gap) + bandHeight + 13);
  }
}
function choose(i) {
  if (i < 0 || i >= points.length) return;
  chosen = i; draw(); story(points[i]);
}
function nearest(event) {
  const box = canvas.getBoundingClientRect(), wide = (box.width - left) / Math.max(1, data.steps.length);
  const y = event.clientY - box.top, band = Math.min(parts.length - 1, Math.floor(y / (bandHeight + gap)));
  const form = Math.min(forms - 1, Math.floor((y - band * (bandHeight + gap)) / (bandHeight / forms)));
  const step = (event.clientX - box.left - left) / wide;
  let best = -1, least = Infinity;
  points.forEach((p, i) => {
    if (!data.steps[p.step] || data.steps[p.step][0] !== parts[band]) return;
    const far = Math.abs(p.step + .5 - step) * 10 + Math.abs(p.form - form);
    if (far < least) least = far, best = i;
  });
  return best;
}
canvas.addEventListener('click', e => choose(nearest(e)));
canvas.addEventListener('keydown', e => {
  const by = {ArrowLeft: -1, ArrowRight: 1}[e.key], step = {ArrowUp: -1, ArrowDown: 1}[e.key];
  if (by === undefined && step === undefined) return;
  e.preventDefault();
  if (step !== undefined) return choose(chosen + step);
  const at = points[chosen].step, form = points[chosen].form;
  let i = chosen + by;
  while (points[i] && (points[i].step === at || points[i].form !== form) && Math.abs(points[i].step - at) < 2) i += by;
  choose(points[i] ? i : chosen);
});
window.addEventListener('resize', draw);
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', draw);

function table() {
  const rows = new Map();
  for (const kind of data.classes) {
    const row = names.get(kind.state) || unnamed, group = rows.get(row.name) || {row, points: 0, again: {}};
    group.points += kind.points;
    for (const [name, n] of Object.entries(kind.again)) group.again[name] = (group.again[name] || 0) + n;
    rows.set(row.name, group);
  }
  const body = get('states').tBodies[0];
  for (const n of [...data.names, unnamed]) {
    const group = rows.get(n.name);
    if (!group || group.done) continue;
    group.done = true;
    const tr = element('tr'), sign = element('td');
    sign.append(mark(group.row));
    tr.append(sign, element('td', n.name), element('td', group.points, 'number'), element('td', n.left), element('td', again(group.again)), element('td', n.person));
    body.append(tr);
    const item = element('span');
    item.append(mark(group.row), ' ' + n.name);
    get('legend').append(item);
  }
}
get('command').textContent = data.command;
get('summary').textContent = `${data.steps.length} operations on the flash, ${points.length} points at which the power may fail, ` +
  `${data.states} different states. ${data.date}, seed ${data.seed}.`;
const list = get('broken');
if (!data.broken.length) list.append(element('li', '✔ Every promise was kept.', 'kept'));
for (const b of data.broken.slice(0, 50)) list.append(element('li', `✖ ${b.text}: ${b.point}: ${b.what}`, 'broken'));
table();
if (points.length) choose(chosen);
