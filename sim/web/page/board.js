// The board: lines, LEDs and keys, clock, bus, serial ports, slots.

class BoardView {
  constructor(camera) {
    this.camera = camera;
    this.leds = el('div', { class: 'leds' });
    this.keys = el('div', { class: 'row' });
    this.lines = el('div', { class: 'lines', role: 'table', 'aria-label': 'GPIO lines' });
    this.wires = el('ul', { class: 'plain' });
    this.clock = el('p');
    this.bus = el('div');
    this.ports = el('div');
    this.slots = el('p', { class: 'quiet' });
    this.registers = el('ul', { class: 'plain' });
    this.said = el('p', { class: 'said', role: 'status' });
    this.root = card('Board', null, el('div', { class: 'board' },
      el('div', {}, el('h4', {}, 'LEDs and keys'), this.leds, this.keys),
      el('div', {}, el('h4', {}, 'GPIO lines: square and underlined an output, round an input; 1 high, 0 low'), this.lines, this.wires, frozen ? null : this.wiring()),
      el('div', {}, el('h4', {}, 'Real-time clock'), this.clock, frozen ? null : this.clockControls()),
      el('div', {}, el('h4', {}, 'Serial ports'), this.ports),
      el('div', {}, el('h4', {}, 'I2C, slots, registers'), this.bus, this.slots, el('details', {}, el('summary', {}, 'Registers that are not zero'), this.registers))),
    this.said);
    this.buildLines();
    this.buildPorts();
  }

  async do(action) {
    try {
      say(this.said, (await act(this.camera, action)).trim() || 'done');
      this.said.className = 'said';
    } catch (e) {
      say(this.said, e.message);
      this.said.className = 'said bad';
    }
  }

  buildLines() {
    this.pins = [];
    this.lines.append(el('span'), ...[0, 1, 2, 3, 4, 5, 6, 7].map(b => el('span', { class: 'quiet' }, '.' + b)));
    for (let group = 1; group <= 10; ++group) {
      this.lines.append(el('span', { class: 'quiet' }, String(group)));
      this.pins.push([0, 1, 2, 3, 4, 5, 6, 7].map(bit => {
        const name = known.lines.find(l => l.line === group + '.' + bit);
        const pin = el('span', { class: 'pin', title: group + '.' + bit + (name ? ', ' + name.name : '') }, '0');
        this.lines.append(pin);
        return pin;
      }));
    }
    this.lights = known.lines.filter(l => l.kind === 'led').map(l => {
      const text = document.createTextNode(l.name + ' off');
      const light = el('span', { class: 'led' }, el('i', { 'aria-hidden': 'true' }), text);
      this.leds.append(light);
      return { ...l, light, text };
    });
    for (const key of known.lines.filter(l => l.kind === 'key')) {
      if (frozen) continue;
      const hold = el('select', { 'aria-label': 'how long the key is held' }, ...['0.3', '1', '5'].map(n => el('option', { value: n }, n + ' s')));
      this.keys.append(el('button', { onclick: () => this.do({ action: 'press', key: key.line, seconds: hold.value }) }, 'Press ' + key.name), 'for', hold);
    }
  }

  wiring() {
    const line = el('input', { class: 'mono grow', placeholder: '4.0 wire 5.0', 'aria-label': 'a wire, a short, a level or a press', list: 'wirings' });
    return el('form', { class: 'row', onsubmit: e => { e.preventDefault(); this.do({ action: 'pin', line: line.value }); } }, line,
      el('button', {}, 'Wire'), el('button', { type: 'button', onclick: () => this.do({ action: 'clear-pins' }) }, 'Clear'));
  }

  clockControls() {
    const time = el('input', { class: 'mono grow', placeholder: '2012-02-28 23:59:58', 'aria-label': 'time for the clock' });
    const fault = el('select', { 'aria-label': 'fault of the clock' }, ...['none', 'stopped', 'no-leap', 'bcd', 'drift=30', 'drift=-30'].map(f => el('option', {}, f)));
    return el('div', { class: 'row' }, time, el('button', { onclick: () => this.do({ action: 'set-clock', time: time.value }) }, 'Set'),
      fault, el('button', { onclick: () => this.do({ action: 'break-clock', fault: fault.value }) }, 'Break'));
  }

  buildPorts() {
    this.far = ['ttyAMA1', 'ttyAMA2'].map(port => {
      const text = el('span', { class: 'grow' });
      const sent = el('ul', { class: 'plain' });
      const end = el('input', { class: 'mono grow', list: 'farends', placeholder: 'loopback wrong@17', 'aria-label': 'far end of ' + port });
      this.ports.append(el('p', {}, el('b', {}, port + (port === 'ttyAMA1' ? ', RS-485: ' : ', RS-232: ')), text), sent,
        frozen ? '' : el('form', { class: 'row', onsubmit: e => { e.preventDefault(); this.do({ action: 'plug', port, line: end.value }); } }, end, el('button', {}, 'Plug')));
      return { port, text, sent };
    });
  }

  draw() {
    const board = this.camera.board;
    if (!board) return;
    board.lines.forEach((group, g) => this.pins[g].forEach((pin, bit) => {
      const out = group.output >> bit & 1, high = group.level >> bit & 1;
      pin.className = 'pin' + (out ? ' out' : '') + (high ? ' high' : '');
      say(pin, high ? '1' : '0');
    }));
    for (const l of this.lights) {
      const [group, bit] = l.line.split('.').map(Number), state = board.lines[group - 1];
      const lit = (state.output >> bit & 1) && (state.level >> bit & 1);
      l.light.className = 'led' + (lit ? ' lit' : '');
      if (l.text.data !== l.name + (lit ? ' on' : ' off')) l.text.data = l.name + (lit ? ' on' : ' off');
    }
    fill(this.wires, board.pins);
    say(this.clock, (board.rtc || 'not started') + (board.rtc_faults ? ', ' + board.rtc_faults : ''));
    fill(this.registers, Object.entries(board.registers).map(([a, v]) => a + ' = 0x' + v.toString(16).padStart(8, '0')));
    const devices = Object.entries(board.i2c);
    if (JSON.stringify(devices) !== this.devices)
      this.bus.replaceChildren(...devices.map(([address, hex]) => el('details', {}, el('summary', {}, 'I2C device 0x' + address),
        el('pre', {}, (hex.match(/.{1,32}/g) || []).map((l, i) => i.toString(16) + '0  ' + l.match(/../g).join(' ')).join('\n')))), devices.length ? '' : el('p', { class: 'quiet' }, 'no device on the I2C bus'));
    this.devices = JSON.stringify(devices);
    say(this.slots, 'media: ' + (this.camera.head.slots.join(', ') || 'none, given to a camera when it starts') + '; drivers: ' + (this.camera.head.drivers.join(' ') || 'none loaded'));
    for (const { port, text, sent } of this.far) {
      const line = this.camera.serial.find(l => l.startsWith(port + ' '));
      say(text, line ? line.slice(port.length + 1) : 'nothing plugged, not opened');
      fill(sent, this.camera.events.filter(e => e.source === port && e.text.startsWith('write')).slice(-3).map(e => e.time.toFixed(3) + ' ' + e.text.slice(0, 80)));
    }
  }
}

// A list's items, touched only where they differ.
function fill(list, items) {
  const text = items.join('\n');
  if (list.filled === text) return;
  list.filled = text;
  list.replaceChildren(...items.map(item => el('li', {}, item)));
}
