#!/usr/bin/env python3
"""Runs a program on a terminal of its own and draws what it shows.

    docs/screenshot.py [--size COLUMNSxROWS] [--seconds N] [--keys KEYS] [--svg FILE] PROGRAM...

Without --svg prints the screen as text. A word PROC among those of the program becomes
a folder like /proc of a machine with four cores that works in waves. The picture at
the top of README.md:

    docs/screenshot.py --size 96x10 --seconds 12 --svg docs/monitor.svg \\
        build/release/examples/monitor --interval 0.25 --proc PROC
"""
import argparse, fcntl, math, os, pty, re, select, signal, struct, sys, tempfile, termios, time
from xml.sax.saxutils import escape


class Screen:
    """As much of a terminal as the monitor needs; a cell is a character and its look."""

    def __init__(self, columns, rows):
        self.columns, self.rows = columns, rows
        self.look = ''
        self.clear()

    def clear(self):
        self.cells = [[(' ', '')] * self.columns for _ in range(self.rows)]
        self.x = self.y = 0
        self.hasScrolled = False

    def write(self, text):
        for piece in re.finditer(r'\x1b\[([?0-9;]*)([A-Za-z])|(\r)|(\n)|([^\x1b])', text):
            arguments, command, home, line, character = piece.groups()
            if command == 'H':
                self.x = self.y = 0
            elif command == 'm':
                self.look = '' if arguments in ('', '0') else arguments
            elif command in ('J', 'K'):
                self.cells[self.y][self.x:] = [(' ', '')] * (self.columns - self.x)
                for y in range(0 if arguments == '2' else self.y + 1, self.rows if command == 'J' else 0):
                    self.cells[y] = [(' ', '')] * self.columns
            elif home:
                self.x = 0
            elif line:
                self.y += 1
            elif character and self.x < self.columns:
                self.cells[self.y][self.x] = (character, self.look)
                self.x += 1
            if self.y == self.rows:
                self.hasScrolled = True
                self.y -= 1
                self.cells = self.cells[1:] + [[(' ', '')] * self.columns]

    def lines(self):
        return [''.join(c for c, _ in row).rstrip() for row in self.cells]


class Proc:
    """What the kernel of a machine tells that works in waves."""

    def __init__(self, folder, phase=0):
        self.folder, self.began, self.phase = folder, time.time(), phase
        self.busy, self.moved, self.at = [0.0] * 4, [0.0] * 4, 0.0
        os.mkdir(folder + '/net')
        self.write()

    def put(self, name, text):
        with open(self.folder + '/new', 'w') as file:
            file.write(text)
        os.replace(self.folder + '/new', self.folder + '/' + name)

    def write(self):
        now = time.time() - self.began
        step, self.at = now - self.at, now
        wave = lambda slow, phase: 0.5 + 0.5 * math.sin(now / slow + phase + self.phase)
        shares = [wave(1.7, 0), 0.6 * wave(0.6, 1), 0.3 + 0.6 * wave(2.3, 2), 0.2 * wave(0.4, 3)]
        speeds = [3e4 * wave(0.7, 1) ** 4, 4e3 * wave(1.1, 4) ** 2, 2.4e6 * wave(1.3, 0) ** 2, 1.1e5 * wave(0.9, 5)]
        self.busy = [b + 1e4 * step * s for b, s in zip(self.busy, shares)]
        self.moved = [m + step * s for m, s in zip(self.moved, speeds)]
        ticks = lambda busy, total: ' %d 0 0 %d' % (busy, total - busy)
        cores = ''.join('cpu%d%s\n' % (i, ticks(b, 1e4 * now)) for i, b in enumerate(self.busy))
        self.put('stat', 'cpu ' + ticks(sum(self.busy), 4e4 * now) + '\n' + cores)
        self.put('meminfo', 'MemTotal: 16384000 kB\nMemAvailable: %d kB\nSwapTotal: 4096000 kB\nSwapFree: 3900000 kB\n'
                 % (9e6 - 3e6 * wave(3, 0)))
        self.put('loadavg', '%.2f 1.84 1.52 %d/412 9001\n' % (1.5 + wave(2, 1), 2 + 3 * wave(1, 0)))
        self.put('diskstats', '259 0 nvme0n1 9 0 %d 0 9 0 %d 0\n' % tuple(self.moved[:2]))
        self.put('net/dev', 'x\nx\n eth0: %d 1 0 0 0 0 0 0 %d 1 0 0 0 0 0 0\n' % tuple(self.moved[2:]))


def run(program, screen, seconds, keys, procs=()):
    folder = tempfile.TemporaryDirectory()
    procs = [*procs, Proc(folder.name)] if 'PROC' in program else procs
    program = [folder.name if word == 'PROC' else word for word in program]
    pid, master = pty.fork()
    if pid == 0:
        os.environ.update(TERM='xterm', LC_ALL='C.UTF-8')
        os.execvp(program[0], program)
    fcntl.ioctl(master, termios.TIOCSWINSZ, struct.pack('HHHH', screen.rows, screen.columns, 0, 0))
    end = time.time() + seconds
    text = b''
    while time.time() < end:
        for proc in procs:
            proc.write()
        if keys and time.time() > end - seconds / 4:
            os.write(master, keys.encode())
            keys = ''
        if select.select([master], [], [], 0.05)[0]:
            try:
                text += os.read(master, 65536)
            except OSError:
                break
    os.kill(pid, signal.SIGTERM)
    os.waitpid(pid, 0)
    screen.write(text.decode(errors='replace').split('\x1b[?1049l')[0].split('\x1b[?1049h')[-1])


def svg(screen):
    width, height, margin = 8.4, 18, 12
    looks = {'': '', '31': 'r', '32': 'g', '1;31': 'b'}
    lines = []
    for y, row in enumerate(screen.cells):
        x = 0
        while x < len(row):
            begin, look = x, row[x][1]
            while x < len(row) and row[x][1] == look:
                x += 1
            text = ''.join(c for c, _ in row[begin:x])
            begin += len(text) - len(text.lstrip())  # some viewers drop spaces at the ends
            text = text.strip()
            if text:
                lines.append('<text x="%.1f" y="%d" textLength="%.1f" class="%s">%s</text>' % (
                    margin + begin * width, margin + 14 + y * height, len(text) * width,
                    looks.get(look, ''), escape(text.replace(' ', '\u00a0'))))
    return '''<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d">
<style>
rect { fill: #fdf6e3 } text { fill: #3b4a50; font: 14px "DejaVu Sans Mono", Menlo, Consolas, monospace }
.r { fill: #c22 } .g { fill: #2a7d2a } .b { fill: #c22; font-weight: bold }
@media (prefers-color-scheme: dark) {
  rect { fill: #1d2327 } text { fill: #d5dbdd } .r { fill: #f66 } .g { fill: #6c6 } .b { fill: #f66 }
}
</style>
<rect width="100%%" height="100%%" rx="8"/>
%s
</svg>
''' % (2 * margin + screen.columns * width, 2 * margin + screen.rows * height, '\n'.join(lines))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument('--size', default='80x24')
    parser.add_argument('--seconds', type=float, default=3)
    parser.add_argument('--keys', default='')
    parser.add_argument('--svg')
    parser.add_argument('program', nargs=argparse.REMAINDER)
    options = parser.parse_args()
    screen = Screen(*map(int, options.size.split('x')))
    run(options.program, screen, options.seconds, options.keys)
    if options.svg:
        open(options.svg, 'w', encoding='utf-8').write(svg(screen))
    else:
        print('\n'.join(screen.lines()))
    sys.exit(screen.hasScrolled)


if __name__ == '__main__':
    main()
