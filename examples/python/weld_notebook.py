#!/usr/bin/env python3
"""Looks at the welds of a recording with pandas and matplotlib: weld_notebook.py RECORDING PICTURE

The cells can be run one by one in an editor that knows them.
"""
# %% Open the recording
import sys

import matplotlib

import telvane

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

recording = telvane.read(sys.argv[1])
print(f"recorded on {recording.started:%Y-%m-%d at %H:%M}, with {recording.channels()}")

# %% The welds as a table
table = recording.weld_table()
print(table[["tag", "begin", "duration", "samples", "process"]].to_string(index=False))

# %% The trace of the first weld
weld = recording.welds()[0]
trace = weld.to_pandas()
seconds = (trace.index - trace.index[0]).total_seconds()
arc = trace[trace["data.amps"] > 10]
print(f"current {arc['data.amps'].mean():.0f} A, standard deviation {arc['data.amps'].std():.1f} A")

# %% Current, voltage, and how they go together
figure, (current, voltage, both) = plt.subplots(3, 1, figsize=(9, 9), constrained_layout=True)
current.plot(seconds, trace["data.amps"], linewidth=0.7)
current.set_ylabel("current, A")
current.set_title(f"weld {weld.tag}")
voltage.plot(seconds, trace["data.volts"], linewidth=0.7, color="tab:orange")
voltage.set(xlabel="time, s", ylabel="voltage, V")
both.scatter(arc["data.volts"], arc["data.amps"], s=2, alpha=0.3, color="tab:green")
both.set(xlabel="voltage, V", ylabel="current, A")
figure.savefig(sys.argv[2], dpi=110)
