#!/usr/bin/env python3
"""Follows every link of the manual and looks for markup that was left as it is.

    check_manual.py FOLDER
"""
import html, os, re, sys

folder = sys.argv[1]
pages = {}
for name in os.listdir(folder):
    if name.endswith('.html'):
        with open(os.path.join(folder, name), encoding='utf-8') as file:
            pages[name] = file.read()
anchors = {name: set(re.findall(r'(?:id|name)="([^"]+)"', text)) for name, text in pages.items()}
faults = []

for name, text in sorted(pages.items()):
    for link in set(re.findall(r'(?:href|src)="([^"]+)"', text)):
        link = html.unescape(link)
        # Doxygen names a heading that it leaves out where nested classes are private.
        if re.match(r'https?:|javascript:|mailto:', link) or link == '#nested-classes':
            continue
        page, _, anchor = link.partition('#')
        page = page or name
        if not os.path.exists(os.path.join(folder, page)):
            faults.append('%s: a link to %s, which is no page' % (name, link))
        elif anchor and page in anchors and anchor not in anchors[page]:
            faults.append('%s: a link to %s, where that page has nothing' % (name, link))
    if name.endswith('_source.html') or '-members' in name or name.startswith('functions'):
        continue
    text = re.sub(r'(?s)<(script|style|pre|code|tt)\b.*?</\1>|<div class="line">.*?</div>', '', text)
    text = re.sub(r'(?s)<td class="mem.*?</td>|<h2 class="memtitle".*?</h2>', '', text)
    text = html.unescape(re.sub(r'<[^>]+>', '', text))
    for markup in re.findall(r'</?(?:tt|code|b|em|p|a)>|`[^`\n]*`|\]\([^)\n]+\)|[\\@](?:ref|code|ingroup|file|param)\b', text):
        faults.append('%s: %s in its text' % (name, markup))

print('\n'.join(faults) or '%d pages' % len(pages))
sys.exit(bool(faults) or not pages)
