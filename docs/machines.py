#!/usr/bin/env python3
"""Ten machines publish to one broker, and one flow draws them all: makes docs/flow/machines.svg.

    docs/machines.py [BUILD] [FILE] [SECONDS]

BUILD is the folder of a build, build/release. Fails if a machine is missing in the
picture. Needs mosquitto, and the plug-in mqtt.so. The machines are ten runs of
examples/flows/machine.flow, each with a folder like /proc of its own.
"""
import os, socket, subprocess, sys, tempfile, time

from screenshot import Proc, Screen, run, svg

build = sys.argv[1] if len(sys.argv) > 1 else 'build/release'
target = sys.argv[2] if len(sys.argv) > 2 else 'docs/flow/machines.svg'
names = 'web1 web2 web3 mail files data1 data2 build test spare'.split()
seconds = float(sys.argv[3]) if len(sys.argv) > 3 else 20
flow = [build + '/tools/fxflow', '--plugin', build + '/flow/mqtt/mqtt.so']
folder = tempfile.TemporaryDirectory()
with socket.socket() as free:
    free.bind(('127.0.0.1', 0))
    port = str(free.getsockname()[1])
with open(folder.name + '/conf', 'w') as conf:
    conf.write('listener %s 127.0.0.1\nallow_anonymous true\nlog_dest none\n' % port)
os.environ['PATH'] += ':/usr/sbin'
children = [subprocess.Popen(['mosquitto', '-c', folder.name + '/conf'])]
procs = []
try:
    for i, name in enumerate(names):
        os.mkdir(os.path.join(folder.name, name))
        procs.append(Proc(os.path.join(folder.name, name), i))
        settings = ['cpu.proc=' + procs[-1].folder, 'tick.every=0.25', 'out.port=' + port,
                    'out.topic=machines/%s/cpu' % name]
        children.append(subprocess.Popen(
            flow + [word for one in settings for word in ('--set', one)] + ['examples/flows/machine.flow']))
    settings = ['tick.every=0.25'] + [name + '.port=' + port for name in names]
    screen = Screen(96, 11)
    run(flow + [word for one in settings for word in ('--set', one)] + ['examples/flows/machines.flow'],
        screen, seconds, '', procs)
finally:
    for child in reversed(children):  # the broker last
        child.kill()
        child.wait()
with open(target, 'w', encoding='utf-8') as file:
    file.write(svg(screen))
print('\n'.join(screen.lines()))
sys.exit(not all(any(line.startswith(name) and '%' in line for line in screen.lines()) for name in names))
