#!/usr/bin/env python3
"""Mutation test: which small faults in the product do the tests not notice?

    tools/mutate.py [options] [ROOM...]    from the project's root; without a ROOM all of them

Each mutant is a source of the product with one token changed. It is built in a copy of the tree (--work, kept between
runs) and shown to the tests that can see the room, quick ones first. A mutant that no test notices survives. The draw
is by --seed and by the sources alone, so the same sample can be tried again while the product stays as it is.

    --work FOLDER    the copy (default: mutate in the folder for temporary files)
    --seed N         another sample (default 1)
    --json FILE      every mutant with its fate, written as it goes; those that it holds already are not tried again
    --quick          without the slow tests, the last stage of some rooms
    --only FILE      of an earlier --json file the mutants whose fate is one of --fates, in place of a draw
    --fates LIST     default: killed,timed out

A mutant may signal every process that it can reach, so all of this runs in a process namespace of its own (unshare of
util-linux; as anybody, where the kernel lets anybody make one).

Prints a line a survivor, then a line a room, last the sum: "all: N mutants, N killed, N timed out, N survived: NN.N %".
Mutants that do not compile are left out of the figures.
"""
import argparse, glob, json, os, random, re, resource, shutil, signal, subprocess, sys, tempfile, time

CAMERA = ['zep', 'vcam', 'vcam-guest', 'vcamsim', 'fwpkg', 'zep-audio']
# room: mutants a file at most; the tests that see it, stage by stage
ROOMS = {
    'upgrade': (6, [['unit_upgrade'], ['camera_upgrade', 'camera_flash', 'camera_xupgrade'], ['sweep_upgrade']]),
    'common': (3, [['unit_common'], ['camera_libs', 'camera_examples', 'unit_service'],
                   ['camera_bringup', 'camera_upgrade', 'camera_xupgrade']]),
    'service': (2, [['unit_service'], ['camera_bringup', 'camera_libs', 'camera_xupgrade']]),
    'board': (2, [['unit_board'], ['camera_bringup', 'camera_registers', 'camera_arp', 'camera_serial']]),
    'factory': (2, [['unit_factory'], ['camera_factory_lines', 'camera_factory_media', 'camera_factory_rtc',
                                       'camera_serial'], ['camera_audio', 'camera_factory_signals']]),
    'mpp': (2, [['unit_mpp', 'unit_common'], ['camera_media'], ['camera_audio']]),
}
STAGE_SECONDS = 900  # of a stage without a mutant; with one four times what it took, and a minute at least
CPU_SECONDS = 60     # over three times the longest without a mutant

OPERATORS = [
    (re.compile(r' == '), ' != '), (re.compile(r' != '), ' == '),
    (re.compile(r' <= '), ' < '), (re.compile(r' >= '), ' > '),
    (re.compile(r' < (?=[\w(])'), ' <= '), (re.compile(r' > (?=[\w(])'), ' >= '),
    (re.compile(r' && '), ' || '), (re.compile(r' \|\| '), ' && '),
    (re.compile(r' \+ '), ' - '), (re.compile(r' - '), ' + '),
    (re.compile(r' \+= '), ' -= '), (re.compile(r' \* (?=\w)'), ' / '),
    (re.compile(r' << '), ' >> '), (re.compile(r' >> '), ' << '),
    (re.compile(r' & (?=\w)'), ' | '), (re.compile(r' \| '), ' & '),
    (re.compile(r'\btrue\b'), 'false'), (re.compile(r'\bfalse\b'), 'true'),
    (re.compile(r'\bbreak;'), ';'), (re.compile(r'\bcontinue;'), ';'),
    (re.compile(r'!(?=[\w(])'), ''),
]
NUMBER = re.compile(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|\d+)(?![\w.'])")
CONDITION = re.compile(r'\b(if|while) \((?!!\()(.*)\)( [^{]*;| \{)?$')
CALL = re.compile(r'^(\s+)([a-zA-Z_][\w.:>-]*\([^;{}]*\));\s*$')
RETURN = re.compile(r'\breturn ([^;]+);')
# Comments, preprocessor lines, strings and character constants hold no mutants.
SKIPPED = re.compile('|'.join((r'//[^\n]*', r'/\*.*?\*/', r'(?m:^[ \t]*#(?:\\\n|[^\n])*)', r'"(?:\\.|[^"\\\n])*"',
                               r"(?<!\w)'(?:\\.|[^'\\\n])*'")), re.S)


def blanked(text):
    return SKIPPED.sub(lambda m: re.sub(r'[^\n]', '\0', m.group()), text)


def incremented(word):
    octal = re.fullmatch(r'0[0-7]+', word)
    return str((int(word, 8) if octal else int(word, 0)) + 1)


def mutants(path):
    """The text of a file and its mutants: (line, begin, end, replacement)."""
    text, found, start = open(path).read(), [], 0
    for number, line in enumerate(blanked(text).split('\n'), 1):
        if not re.search(r'static_assert|template|using ', line):
            def add(m, group, new):
                found.append((number, start + m.start(group), start + m.end(group), new))
            for pattern, new in OPERATORS:
                for m in pattern.finditer(line):
                    add(m, 0, new)
            for m in NUMBER.finditer(line):
                add(m, 0, incremented(m.group(1)))
            m = CONDITION.search(line)
            if m:
                add(m, 2, '!(' + text[start + m.start(2):start + m.end(2)] + ')')
            m = CALL.match(line)
            if m and not m.group(2).startswith('return'):
                add(m, 2, '')
            m = RETURN.search(line)
            if m and m.group(1).strip() not in ('0', 'false', 'nullptr'):
                add(m, 1, '{}' if m.group(1).startswith('{') and m.group(1) != '{}' else '0')
        start += len(line) + 1
    return text, found


def end(pid):
    """Ends a process and all that descend from it, whatever their groups."""
    children = subprocess.run(['ps', '-o', 'pid=', '--ppid', str(pid)], stdout=subprocess.PIPE).stdout.split()
    os.kill(pid, signal.SIGSTOP)
    for child in children:
        end(int(child))
    os.kill(pid, signal.SIGKILL)


def run(command, cwd, seconds, log, cpu_seconds=None):
    """The command's status; -1 when it was ended for its time. Each of its processes may use cpu_seconds."""
    limit = cpu_seconds and (lambda: resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds)))
    with open(log, 'w') as out:
        child = subprocess.Popen(command, cwd=cwd, stdout=out, stderr=subprocess.STDOUT, start_new_session=True,
                                 preexec_fn=limit)
        try:
            return child.wait(seconds)
        except subprocess.TimeoutExpired:
            end(child.pid)
            child.wait()
            return -1


class Copy:
    """A copy of the tree in which mutants are built and tested."""

    def __init__(self, work):
        self.tree, self.log = os.path.join(work, 'tree'), os.path.join(work, 'log')
        self.build = os.path.join(self.tree, 'build', 'host')
        self.seconds = {}  # of each stage
        os.makedirs(self.tree, exist_ok=True)
        listed = subprocess.run(['git', 'ls-files', '-z'], stdout=subprocess.PIPE, check=True).stdout
        files = listed.decode().split('\0')
        kept = set(files)
        for folder, folders, names in os.walk(self.tree):
            folders[:] = [f for f in folders if f != 'build']
            for name in names:
                if os.path.relpath(os.path.join(folder, name), self.tree) not in kept:
                    os.unlink(os.path.join(folder, name))
        for name in filter(os.path.isfile, files):
            self.write(name, open(name, 'rb').read())
        os.environ['CCACHE_BASEDIR'] = self.tree
        if run(['cmake', '--preset', 'host'], self.tree, 600, self.log):
            sys.exit('mutate: cannot configure the copy, see ' + self.log)

    def write(self, name, data):
        copy = os.path.join(self.tree, name)
        os.makedirs(os.path.dirname(copy), exist_ok=True)
        if not os.path.isfile(copy) or open(copy, 'rb').read() != data:
            with open(copy, 'wb') as out:
                out.write(data)
            shutil.copymode(name, copy)

    def fate(self, stages):
        for stage in stages:
            targets = stage if stage[0].startswith('unit_') else stage + CAMERA
            if run(['cmake', '--build', self.build, '-j', '2', '--target'] + targets, self.tree, 3000, self.log):
                return 'uncompiled'
            tests, began = '^(%s)$' % '|'.join(stage), time.time()
            status = run(['ctest', '--test-dir', self.build, '-j', '2', '--stop-on-failure', '-R', tests], self.tree,
                         self.seconds.get(tests, STAGE_SECONDS), self.log, CPU_SECONDS)
            self.seconds.setdefault(tests, max(60, 4 * (time.time() - began)))
            if status:
                hung = status == -1 or 'Exception: Other' in open(self.log, errors='replace').read()
                return 'timed out' if hung else 'killed'
        return 'survived'


def summary(room, fates):
    n = {fate: sum(f['fate'] == fate for f in fates) for fate in ('killed', 'timed out', 'survived')}
    tried = sum(n.values())
    print('%s: %d mutants, %d killed, %d timed out, %d survived: %.1f %%' %
          (room, tried, n['killed'], n['timed out'], n['survived'], 100 * (tried - n['survived']) / max(tried, 1)),
          flush=True)


def go_apart():
    """Goes on as the first process of a process namespace: nobody outside can be signalled."""
    if os.environ.pop('ZEP_MUTATE_APART', None) and os.getpid() == 1:
        return
    os.environ['ZEP_MUTATE_APART'] = '1'
    rights = [] if os.geteuid() == 0 else ['--user', '--map-root-user']
    sys.stdout.flush()
    apart = subprocess.run(['unshare', *rights, '--pid', '--fork', '--mount-proc', '--kill-child', sys.executable,
                            *sys.argv])
    sys.exit(apart.returncode)


def main():
    a = argparse.ArgumentParser(usage=__doc__.replace('%', '%%'))
    a.add_argument('rooms', nargs='*', choices=[[]] + list(ROOMS))
    a.add_argument('--work', default=os.path.join(tempfile.gettempdir(), 'mutate'))
    a.add_argument('--seed', type=int, default=1)
    a.add_argument('--json')
    a.add_argument('--quick', action='store_true')
    a.add_argument('--only')
    a.add_argument('--fates', default='killed,timed out')
    o = a.parse_args()
    go_apart()
    copy = Copy(o.work)
    fates = json.load(open(o.json)) if o.json and os.path.isfile(o.json) else []
    done = {f['name'] for f in fates}
    only = o.only and {f['name'] for f in json.load(open(o.only)) if f['fate'] in o.fates.split(',')}
    for room in o.rooms or ROOMS:
        limit, stages = ROOMS[room]
        stages = stages[:2] if o.quick else stages
        began = time.time()
        if copy.fate(stages) != 'survived':
            sys.exit('mutate: %s fails without a mutant, see %s' % (room, copy.log))
        for path in sorted(glob.glob(room + '/**/*.cpp', recursive=True)):
            text, found = mutants(path)
            drawn = found
            if not only and len(found) > limit:
                drawn = sorted(random.Random('%d %s' % (o.seed, path)).sample(found, limit))
            for line, begin, end, new in drawn:
                change = '%s -> %s' % (text[begin:end].strip()[:40], new.strip()[:44] or '(nothing)')
                name = '%s:%d:%d:%s' % (path, line, begin - text.rfind('\n', 0, begin), change)
                if name in done or only and name not in only:
                    continue
                copy.write(path, (text[:begin] + new + text[end:]).encode())
                fate = copy.fate(stages)
                fates.append({'name': name, 'fate': fate})
                if fate == 'survived':
                    print('survived  ' + name, flush=True)
                if o.json:
                    json.dump(fates, open(o.json, 'w'), indent=1)
            copy.write(path, text.encode())
        summary(room, [f for f in fates if f['name'].startswith(room + '/')])
        print('%s took %d s' % (room, time.time() - began), file=sys.stderr)
    summary('all', fates)


if __name__ == '__main__':
    main()
