#!/usr/bin/env python3
"""Draws the table of the long run, and prints its figures.

    scripts/long-life.py TABLE.csv PICTURE.svg
"""
import csv
import statistics
import sys

WIDTH, PLOT_LEFT, PLOT_WIDTH, PANEL, PLOT_HEIGHT = 860, 70, 600, 190, 140
POINTS = 200  # of a curve; each is the median of its share of the transactions


def thinned(values):
    step = max(1, len(values) // POINTS)
    return [(i + step / 2, statistics.median(values[i:i + step])) for i in range(0, len(values) - step + 1, step)]


def panel(top, title, unit, curves, count):
    highest = max(max(values) for _, _, values in curves) * 1.05 or 1
    bottom = top + PLOT_HEIGHT
    out = [f'<text x="{PLOT_LEFT}" y="{top - 8}">{title}</text>',
           f'<path class="axis" d="M{PLOT_LEFT} {top}V{bottom}H{PLOT_LEFT + PLOT_WIDTH}"/>']
    for part in (0, 0.5, 1):
        y = bottom - PLOT_HEIGHT * part
        out.append(f'<text class="s" x="{PLOT_LEFT - 6}" y="{y + 4:.0f}" text-anchor="end">{highest * part:.3g}</text>')
    out.append(f'<text class="s" x="{PLOT_LEFT - 6}" y="{top - 8}" text-anchor="end">{unit}</text>')
    for part in (0, 0.25, 0.5, 0.75, 1):
        x = PLOT_LEFT + PLOT_WIDTH * part
        out.append(f'<text class="s" x="{x:.0f}" y="{bottom + 16}" text-anchor="middle">{count * part:.0f}</text>')
    for number, (name, colour, values) in enumerate(curves):
        path = ' '.join(f'{PLOT_LEFT + PLOT_WIDTH * i / count:.1f},{bottom - PLOT_HEIGHT * v / highest:.1f}'
                        for i, v in thinned(values))
        out.append(f'<polyline points="{path}" stroke="{colour}"/>')
        y = top + 14 + 18 * number
        out.append(f'<path d="M{PLOT_LEFT + PLOT_WIDTH + 14} {y - 4}h18" stroke="{colour}" fill="none" stroke-width="2"/>')
        out.append(f'<text class="s" x="{PLOT_LEFT + PLOT_WIDTH + 38}" y="{y}">{name}</text>')
    return out


def main(table, picture):
    with open(table, newline='') as file:
        rows = list(csv.DictReader(file))
    column = {name: [float(row[name]) for row in rows] for name in rows[0]}
    count = len(rows)
    mega = {name: [v / 1e6 for v in column[name]] for name in ('atoms', 'compiled', 'lists', 'indexes', 'others', 'memory')}
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {4 * PANEL + 20}" font-family="sans-serif" font-size="14">',
           '<title>Three years of mail</title>',
           '<style>text { fill: #111 } text.s { font-size: 12px; fill: #444 } .axis { fill: none; stroke: #888 } '
           'polyline { fill: none; stroke-width: 1.5 }</style>']
    out += panel(30, 'Size on disk', 'MB', [
        ('atoms', '#36609a', mega['atoms']), ('compiled base', '#a3772a', mega['compiled']),
        ('lists of message IDs', '#2f7d3b', mega['lists']), ('everything else', '#999', mega['others'])], count)
    out += panel(30 + PANEL, 'Resident memory', 'MB', [('engine', '#36609a', mega['memory'])], count)
    out += panel(30 + 2 * PANEL, 'Time of a transaction', 'ms', [('110 messages', '#36609a', column['milliseconds'])], count)
    out += panel(30 + 3 * PANEL, 'Open file handles, files', '', [
        ('files on disk', '#a3772a', column['files']), ('handles of the engine', '#36609a', column['handles'])], count)
    out.append('</svg>')
    with open(picture, 'w') as file:
        file.write('\n'.join(out) + '\n')

    tenth = max(1, count // 10)
    print('share of the run:       ' + ''.join(f'{10 * (i + 1):>8} %' for i in range(10)))
    for name in list(column)[1:]:
        unit, values = (1e3, 'kB') if name in mega else (1, '')
        shares = [statistics.median(column[name][i * tenth:(i + 1) * tenth]) / unit for i in range(10)]
        print(f'{name + " " + values:24}' + ''.join(f'{share:>10.1f}' for share in shares))


if __name__ == '__main__':
    main(*sys.argv[1:])
