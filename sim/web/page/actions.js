// What can be done with the camera.

const effects = ['EIO', 'powercut', 'powercut-before', 'powercut-after', 'drop', 'flip', 'short', 'slow=100', 'signal=TERM', 'EBUSY', 'ENOSPC', 'EINTR'];

class ActionView {
  constructor(camera) {
    this.camera = camera;
    this.said = el('p', { class: 'said', role: 'status' });
    this.start = el('button', { class: 'main' }, 'Start');
    this.during = ['Stop', 'Power off', 'Cut the power'].map((text, i) => el('button', {
      type: 'button', class: i === 2 ? 'danger' : undefined, onclick: () => this.do({ action: ['stop', 'power-off', 'cut'][i] })
    }, text));
    this.plan = el('ul', { class: 'plain' });
    this.answer = el('pre', { class: 'gone', tabindex: 0, 'aria-label': 'what the last run changed' });
    this.root = card('Do', null, this.program(), this.said, el('details', { open: true }, el('summary', {}, 'Faults'), this.faults(), this.plan),
      el('details', {}, el('summary', {}, 'Files and changes'), this.files(), this.answer));
  }

  async do(action, then) {
    try {
      const text = await act(this.camera, action);
      say(this.said, then || text.trim() || 'done');
      this.said.className = 'said';
    } catch (e) {
      say(this.said, e.message);
      this.said.className = 'said bad';
    }
  }

  program() {
    const line = el('input', { class: 'mono grow', value: 'upgrade /tmp/pkg -v', 'aria-label': 'program and arguments', list: 'applets', spellcheck: 'false' });
    const time = el('select', { 'aria-label': 'time of the run' }, ...[['pace', 'to follow'], ['real', 'real time'], ['skip', 'pauses skipped']].map(([v, t]) => el('option', { value: v }, t)));
    const box = name => el('input', { type: 'checkbox', 'aria-label': name });
    const sd = box('SD card'), usb = box('USB stick'), loop = box('loudspeaker heard by the microphone');
    const publish = el('input', { type: 'number', min: 1, max: 65535, placeholder: '5000', 'aria-label': 'port of this machine that leads into the camera' });
    this.before = [time, sd, usb, loop, publish]; // what a run is started with
    for (const node of this.before.slice(1)) node.title = 'given to a camera when it starts';
    const submit = event => {
      event.preventDefault();
      const words = (line.value.match(/"[^"]*"|'[^']*'|\S+/g) || []).map(w => /^(".*"|'.*')$/.test(w) ? w.slice(1, -1) : w);
      this.camera.replay = null;
      this.do({ action: 'run', words, time: time.value, sd: sd.checked, usb: usb.checked, loop: loop.checked, publish: +publish.value });
    };
    return el('form', { onsubmit: submit },
      el('div', { class: 'row' }, line, time, this.start),
      el('div', { class: 'row' }, ...this.during, el('label', { class: 'check' }, sd, 'SD'), el('label', { class: 'check' }, usb, 'USB'), el('label', { class: 'check' }, loop, 'sound loop'), el('label', { class: 'check' }, 'station port ', publish)));
  }

  faults() {
    const device = el('select', { 'aria-label': 'device or call' }, ...known.targets.map(t => el('option', {}, t.name)));
    const operation = el('select', { 'aria-label': 'operation' });
    const list = () => operation.replaceChildren(...(known.targets.find(t => t.name === device.value) || { operations: [] }).operations.map(o => el('option', {}, o)));
    device.addEventListener('change', list);
    device.value = 'mtd2';
    list();
    operation.value = 'write';
    const skip = el('input', { type: 'number', min: 0, value: 100, 'aria-label': 'how often it goes well first', size: 5 });
    const times = el('input', { type: 'number', min: -1, value: 1, 'aria-label': 'how often it fails, -1 for ever', size: 3 });
    const effect = el('input', { class: 'mono', list: 'effects', value: 'powercut', 'aria-label': 'effect', size: 12 });
    const submit = event => {
      event.preventDefault();
      this.do({ action: 'fault', line: [device.value, operation.value, skip.value, times.value, effect.value].filter(w => w !== '').join(' ') }, 'planned');
    };
    return el('form', { class: 'row', onsubmit: submit }, device, operation, el('label', { class: 'check' }, 'good calls first ', skip), el('label', { class: 'check' }, 'failing calls ', times), effect,
      el('button', {}, 'Plan'), el('button', { type: 'button', onclick: () => this.do({ action: 'clear-faults' }, 'no fault is planned') }, 'Clear'));
  }

  files() {
    const path = el('input', { class: 'mono grow', value: '/tmp/pkg', 'aria-label': 'path in the camera' });
    const pick = el('input', { type: 'file', class: 'grow', 'aria-label': 'file for the camera' });
    const put = async () => {
      if (!pick.files[0]) return say(this.said, 'choose a file first');
      await this.report(ask('/file', { camera: this.camera.index, path: path.value }, { method: 'POST', body: pick.files[0] }), path.value + ' is in the camera');
    };
    const get = async () => {
      const response = await fetch(address('/file', { camera: this.camera.index, path: path.value }));
      if (!response.ok) return this.report(Promise.reject(new Error(await response.text())));
      const link = el('a', { href: URL.createObjectURL(await response.blob()), download: path.value.split('/').pop() });
      link.click();
      URL.revokeObjectURL(link.href);
      say(this.said, path.value + ' is fetched');
    };
    return el('div', {}, el('div', { class: 'row' }, path, pick), el('div', { class: 'row' }, el('button', { onclick: put }, 'Put'), el('button', { onclick: get }, 'Get'),
      el('button', { onclick: () => this.diff() }, 'What changed')));
  }

  async report(promise, text) {
    try {
      say(this.said, text || await promise);
      await promise;
      this.said.className = 'said';
    } catch (e) {
      say(this.said, e.message);
      this.said.className = 'said bad';
    }
  }

  async diff() {
    try {
      const d = JSON.parse(await ask('/diff', { camera: this.camera.index }));
      const lines = d.flash.map(f => `${f.name}: ${f.changed ? f.changed + ' bytes changed' : 'unchanged'}`);
      for (const [kind, sign] of [['removed', '-'], ['changed', '~'], ['added', '+']]) {
        lines.push(...d.settings[kind].map(s => `${sign} ${s.name}${s.before !== undefined ? '=' + s.before : ''}${s.after !== undefined ? ' -> ' + s.after : ''}`));
        lines.push(...d.files[kind].map(f => `${sign} ${f}`));
      }
      say(this.answer, lines.join('\n') + '\nended: ' + (this.camera.head.running ? 'not yet' : this.camera.head.outcome.text));
      this.answer.classList.remove('gone');
    } catch (e) {
      say(this.said, e.message);
      this.said.className = 'said bad';
    }
  }

  draw() {
    const running = this.camera.head.running;
    this.start.disabled = running;
    for (const button of this.during) button.disabled = !running;
    for (const node of this.before) node.disabled = running;
    fill(this.plan, this.camera.faults.map(f => f.line + (f.left ? '' : ' (used up)')));
  }
}
