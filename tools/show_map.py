#!/usr/bin/env python3
"""Tells what a CCP4 map holds and draws a few of its sections with contours.

Reads the file by itself (numpy only), so that the summary does not lean on the code that wrote it.
"""
import argparse
import sys

import numpy


def read(path):
    with open(path, 'rb') as stream:
        raw = stream.read()
    if raw[208:212] != b'MAP ':
        sys.exit(f'{path} is not a CCP4 map')
    words = numpy.frombuffer(raw[:1024], '<i4')
    reals = numpy.frombuffer(raw[:1024], '<f4')
    if words[3] != 2 or tuple(words[16:19]) != (1, 2, 3):
        sys.exit(f'{path}: only maps of 32-bit reals with axes in the order x y z are drawn')
    nx, ny, nz = (int(n) for n in words[:3])
    density = numpy.frombuffer(raw, '<f4', nx * ny * nz, 1024 + int(words[23])).reshape(nz, ny, nx)
    return words, reals, density


def summary(words, reals, density):
    cell = ' '.join(f'{value:g}' for value in reals[10:16])
    print(f'Cell {cell}, space group {words[22]}')
    print(f'Size {density.shape[2]} x {density.shape[1]} x {density.shape[0]} points, '
          f'grid {words[7]} x {words[8]} x {words[9]}')
    print(f'Min {density.min():.4f}  max {density.max():.4f}  mean {density.mean():.6f}  '
          f'rms {numpy.sqrt(numpy.mean(density.astype(float) ** 2)):.4f}')


def draw(reals, density, png, sections):
    import matplotlib
    matplotlib.use('Agg')
    from matplotlib import pyplot

    gamma = numpy.radians(reals[15])
    nz, ny, nx = density.shape
    x, y = numpy.meshgrid(numpy.arange(nx) / nx * reals[10], numpy.arange(ny) / ny * reals[11])
    x, y = x + y * numpy.cos(gamma), y * numpy.sin(gamma)
    sigma = float(density.std()) or 1.0
    figure, axes = pyplot.subplots(1, sections, figsize=(5 * sections, 5), squeeze=False)
    for panel, axis in enumerate(axes[0]):
        iz = panel * nz // sections
        axis.contour(x, y, density[iz], levels=sigma * numpy.arange(1, 8), cmap='viridis', linewidths=0.9)
        if density[iz].min() < -2 * sigma:
            axis.contour(x, y, density[iz], levels=[-2 * sigma], colors='firebrick', linewidths=0.5)
        axis.set_title(f'z = {iz}/{nz}')
        axis.set_xlabel('x (A)')
        axis.set_ylabel('y (A)')
        axis.set_aspect('equal')
    figure.suptitle('Contours from 1 rms in steps of 1; red: -2 rms')
    figure.tight_layout()
    figure.savefig(png, dpi=110)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('map')
    parser.add_argument('--png', help='picture to write')
    parser.add_argument('--sections', type=int, default=3)
    arguments = parser.parse_args()
    words, reals, density = read(arguments.map)
    summary(words, reals, density)
    if arguments.png:
        draw(reals, density, arguments.png, arguments.sections)


if __name__ == '__main__':
    main()
