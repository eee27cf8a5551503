#!/usr/bin/python3
"""Plots the offset from the master, the last hour of a recording of `ptpstate record`.

    python3 offsetPlot.py monday.rec offset.svg

Uses matplotlib, or gnuplot if that is what there is."""

import argparse
import datetime
import subprocess

import ptplib

OFFSET = "ptp/status.currentDS.offsetFromMaster"


def plot_with_matplotlib(series, out):
    import matplotlib
    matplotlib.use("Agg")
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(figsize=(10, 4))
    axes.step([datetime.datetime.fromtimestamp(time) for time, _ in series],
              [value for _, value in series], where="post", linewidth=0.8)
    axes.set_ylabel("offset from master, ns")
    axes.grid(True, alpha=0.3)
    figure.autofmt_xdate()
    figure.savefig(out)


def plot_with_gnuplot(series, out):
    terminal = "png size 1000,400" if out.endswith(".png") else "svg size 1000,400"
    points = "".join(f"{time:.6f} {value}\n" for time, value in series)
    program = (f"set terminal {terminal}\nset output {out!r}\nset xdata time\n"
               'set timefmt "%s"\nset format x "%H:%M:%S"\nset grid\n'
               'set ylabel "offset from master, ns"\nunset key\n'
               f'plot "-" using 1:2 with steps\n{points}e\n')
    subprocess.run(["gnuplot"], input=program, text=True, check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("recording")
    parser.add_argument("out", help="FILE.svg or FILE.png")
    parser.add_argument("--path", default=OFFSET)
    parser.add_argument("--seconds", type=float, default=3600)
    options = parser.parse_args()
    try:
        series = ptplib.Recording(options.recording).series(options.path)
    except ptplib.Error as error:
        parser.error(str(error))
    end = series[-1][0] if series else 0
    series = [(time, value) for time, value in series
              if value is not None and time >= end - options.seconds]
    if not series:
        parser.error(f"{options.path} has no value in the recording")
    try:
        plot_with_matplotlib(series, options.out)
    except ImportError:
        plot_with_gnuplot(series, options.out)
    values = sorted(abs(value) for _, value in series)
    print(f"{len(series)} values in {series[-1][0] - series[0][0]:.0f} s; "
          f"half are within {values[len(values) // 2]} ns, all within {values[-1]} ns")


if __name__ == "__main__":
    main()
