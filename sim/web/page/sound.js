// The ways of sound, with levels and counters.

const svgSpace = 'http://www.w3.org/2000/svg';
function svg(tag, attributes, text) {
  const node = document.createElementNS(svgSpace, tag);
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
  if (text !== undefined) node.textContent = text;
  return node;
}

class SoundView {
  constructor(camera) {
    this.camera = camera;
    this.note = el('small');
    this.way = svg('svg', { class: 'way', role: 'img' });
    this.said = el('p', { class: 'said', role: 'status' });
    this.pools = el('ul', { class: 'plain' });
    this.none = el('p', { class: 'quiet' }, 'No program has used sound in this run.');
    this.root = card('Sound', this.note, this.none, this.way, this.pools, frozen ? null : this.files(), this.said);
  }

  files() {
    const players = el('div');
    const listen = name => {
      const audio = el('audio', { controls: true, src: address('/sound', { camera: this.camera.index, name, at: Date.now() }), 'aria-label': name });
      audio.addEventListener('error', () => { say(this.said, 'there is no ' + name + ' yet'); audio.remove(); });
      players.replaceChildren(el('h4', {}, name), audio);
      say(this.said, '');
    };
    const pick = el('input', { type: 'file', accept: 'audio/*', 'aria-label': 'sound for the microphone', class: 'grow', onchange: () => this.give(pick.files[0]) });
    const drop = el('div', { class: 'drop row', ondragover: e => { e.preventDefault(); drop.classList.add('over'); }, ondragleave: () => drop.classList.remove('over'), ondrop: e => { e.preventDefault(); drop.classList.remove('over'); this.give(e.dataTransfer.files[0]); } },
      el('span', {}, 'Drop a sound on the microphone:'), pick);
    return el('div', {}, el('div', { class: 'row' }, el('button', { onclick: () => listen('mic.wav') }, 'Hear the microphone'), el('button', { onclick: () => listen('speaker.wav') }, 'Hear the loudspeaker')), players, drop);
  }

  async give(file) {
    if (!file) return;
    try {
      say(this.said, await ask('/file', { camera: this.camera.index, path: 'mic.wav' }, { method: 'POST', body: file }));
      this.said.className = 'said';
    } catch (e) {
      say(this.said, e.message);
      this.said.className = 'said bad';
    }
  }

  // Columns: files and programs, inputs, outputs and encoders, files.
  draw() {
    const sound = this.camera.sound;
    this.none.classList.toggle('gone', !!sound);
    this.way.classList.toggle('gone', !sound);
    if (!sound) return;
    say(this.note, sound.system ? 'media system started' : 'media system stopped');
    const boxes = {}, ways = [];
    const put = (name, column, lines, channel) => { boxes[name] = boxes[name] || { name, column, lines, ...channel }; };
    const state = c => c.paused ? 'paused' : c.enabled ? 'on' : 'off', level = c => c.enabled ? decibels(c.rms) : '';
    for (const c of sound.ai) {
      put('microphone', 0, ['mic.wav']);
      put(c.channel, 1, [c.taken + ' taken', c.lost + ' lost', level(c)], { state: state(c), failed: c.lost, rms: c.enabled && c.rms });
      ways.push(['microphone', c.channel]);
    }
    for (const c of sound.ao) {
      put(c.channel, 2, [c.frames + ' frames', c.underruns + ' under-runs', level(c)], { state: state(c), failed: c.underruns, rms: c.enabled && c.rms });
      put('loudspeaker', 3, ['speaker.wav']);
      ways.push([c.channel, 'loudspeaker']);
    }
    for (const b of sound.binds) {
      put(b.from, 1, []);
      put(b.to, 2, b.frames === undefined ? ['its program', 'fetches frames'] : [b.frames + ' frames', b.dropped + ' dropped']);
      ways.push([b.from, b.to]);
    }
    for (const c of sound.ao) if (!sound.binds.some(b => b.to === c.channel)) { put('program', 1, ['sends frames']); ways.push(['program', c.channel]); }
    this.paint(Object.values(boxes), ways);
    fill(this.pools, sound.pools.map(p => `pool ${p.pool} of ${p.owner}: ${p.blocks} blocks of ${p.block_size}, ${p.driver} in the driver, ${p.programs} with programs`));
  }

  paint(boxes, ways) {
    const rows = [0, 0, 0, 0], wide = 118, tall = 64;
    for (const box of boxes) { box.x = 4 + box.column * 148; box.y = 4 + rows[box.column]++ * (tall + 10); }
    const height = Math.max(...rows) * (tall + 10) + 4, at = Object.fromEntries(boxes.map(b => [b.name, b]));
    const nodes = ways.map(([a, b]) => {
      const x = at[a].x + wide, y = at[a].y + tall / 2, to = at[b].x, end = at[b].y + tall / 2;
      return svg('path', { d: `M${x} ${y} C${x + 15} ${y} ${to - 15} ${end} ${to} ${end}` });
    });
    for (const box of boxes) {
      nodes.push(svg('rect', { x: box.x, y: box.y, width: wide, height: tall, rx: 5 }), svg('text', { x: box.x + 7, y: box.y + 15 }, box.name + (box.state ? ': ' + box.state : '')));
      box.lines.forEach((line, i) => nodes.push(svg('text', { class: i === 1 && box.failed ? 'small failed' : 'small', x: box.x + 7, y: box.y + 29 + i * 13 }, line)));
      if (!box.rms) continue;
      const share = Math.max(0, 1 + 20 * Math.log10(box.rms / 32768) / 60);
      nodes.push(svg('rect', { class: 'level', x: box.x + 3, y: box.y + tall - 5, width: share * (wide - 6), height: 3 }));
    }
    this.way.setAttribute('viewBox', `0 0 570 ${height}`);
    this.way.setAttribute('aria-label', 'ways of sound: ' + ways.map(w => w.join(' to ')).join(', '));
    this.way.replaceChildren(...nodes);
  }
}
