// The page of one exploration: the map, and a table of the states.
const data = JSON.parse(document.getElementById('data').textContent);
const get = id => document.getElementById(id);
const { element, mark, again } = ExplorationMap;
const map = new ExplorationMap(data);

function table() {
  const rows = new Map();
  for (const kind of data.classes) {
    const row = map.names.get(kind.state) || ExplorationMap.unnamed, group = rows.get(row.name) || { row, points: 0, again: {} };
    group.points += kind.points;
    for (const [name, n] of Object.entries(kind.again)) group.again[name] = (group.again[name] || 0) + n;
    rows.set(row.name, group);
  }
  const body = get('states').tBodies[0];
  for (const n of [...data.names, ExplorationMap.unnamed]) {
    const group = rows.get(n.name);
    if (!group || group.done) continue;
    group.done = true;
    const tr = element('tr'), sign = element('td');
    sign.append(mark(group.row));
    tr.append(sign, element('td', n.name), element('td', group.points, 'number'), element('td', n.left), element('td', again(group.again)), element('td', n.person));
    body.append(tr);
  }
}
get('command').textContent = data.command;
get('summary').textContent = map.summary();
const list = get('broken');
if (!data.broken.length) list.append(element('li', '✔ Every promise was kept.', 'kept'));
for (const b of data.broken.slice(0, 50)) list.append(element('li', `✖ ${b.text}: ${b.point}: ${b.what}`, 'broken'));
get('map').append(map.root);
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => map.draw());
table();
