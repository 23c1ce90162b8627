"""Leaves a browser open on the page of a gateway under load, and tells whether either grows.

Usage: open_test.py CHROMIUM TAV WORK
TAV_WEB_MINUTES is how long, 2 unless given; open.csv in WORK has the samples.
"""

import csv
import os
import pathlib
import statistics
import subprocess
import sys
import time

from browser import Browser

chromium, tav, work = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
minutes = float(os.environ.get("TAV_WEB_MINUTES", "2"))

MODEL = "Say:object(__class__(chat.Say)__code__(3001)[1]room:string()[2]text:string())\n" \
        "Said:object(__class__(chat.Said)__code__(3002)[1]room:string()[2]text:string())\n"
SAY = '{"__class__":"chat.Say","room":"hall","text":"good morning, all of you"}\n'

# Frames between two samples, and the tasks that held them up for more than 50 ms.
WATCH = """(() => {
    window.frames_ = []; window.tasks_ = []; let before = 0;
    requestAnimationFrame(function beat(at) {
        if (before) { frames_.push(at - before); }
        before = at;
        requestAnimationFrame(beat);
    });
    new PerformanceObserver(list => { for (const one of list.getEntries()) { tasks_.push(one.duration); } })
        .observe({type: 'longtask'});
})()"""
TAKE = """(() => {
    const frames = frames_.sort((a, b) => a - b), tasks = tasks_;
    frames_ = []; tasks_ = [];
    return {frames: frames.length, frame_ms: frames[frames.length >> 1] || 0, frame_ms_99: frames[Math.floor(frames.length * .99)] || 0,
            frame_ms_worst: frames[frames.length - 1] || 0, long_tasks: tasks.length, long_task_ms_worst: Math.max(0, ...tasks),
            packets: document.getElementById('counts').textContent};
})()"""

# What may not be more at the end than at the beginning, and what measuring itself takes for granted: share, and units.
HELD = {"heap": (1.15, 1 << 20), "nodes": (1.05, 300), "listeners": (1.05, 50), "renderer_kb": (1.15, 16384),
        "gateway_kb": (1.1, 8192)}


def resident(process):
    """Kilobytes that are the process's own: not those of the files that it shares with others."""
    with open(f"/proc/{process}/status") as lines:
        return next(int(line.split()[1]) for line in lines if line.startswith("RssAnon:"))


def below(process):
    for one in pathlib.Path(f"/proc/{process}/task/{process}/children").read_text().split():
        yield one
        yield from below(one)


def renderers(process):
    """The kilobytes of those that render pages; what else the browser starts is no page's."""
    total = 0
    for one in below(process):
        try:
            if b"--type=renderer" in pathlib.Path(f"/proc/{one}/cmdline").read_bytes():
                total += resident(one)
        except (FileNotFoundError, ProcessLookupError, StopIteration):
            pass
    return total


def sample(browser, gateway):
    for _ in range(2):
        browser.call("HeapProfiler.collectGarbage")
    metrics = {one["name"]: one["value"] for one in browser.call("Performance.getMetrics")["metrics"]}
    return {"heap": metrics["JSHeapUsedSize"], "nodes": metrics["Nodes"], "listeners": metrics["JSEventListeners"],
            "renderer_kb": renderers(browser.process.pid), "gateway_kb": resident(gateway.pid),
            "task_s": metrics["TaskDuration"], **browser.run(TAKE)}


def watch(browser, gateway, load):
    browser.run(WATCH)
    # The gateway keeps 10,000 packets: what is before it has them is its growing to its size.
    browser.wait("parseInt(document.getElementById('counts').textContent.split(' open, ')[1].replaceAll(',', '')) > 20000", 120)
    browser.run(TAKE)
    samples = []
    start = time.monotonic()
    with open(work / "open.csv", "w", newline="", buffering=1) as out:
        table = None
        step = min(60, minutes * 60 / 30)
        while time.monotonic() < start + minutes * 60:
            time.sleep(step)
            assert load.poll() is None, "the load has ended"
            samples.append({"s": round(time.monotonic() - start), **sample(browser, gateway)})
            if not table:
                table = csv.DictWriter(out, samples[0])
                table.writeheader()
            table.writerow(samples[-1])
    return samples


def judge(samples):
    third = len(samples) // 3
    grown = []
    for name in samples[0]:
        if name in ("s", "packets", "task_s"):
            continue
        first, last = (statistics.median(one[name] for one in part) for part in (samples[:third], samples[-third:]))
        print(f"{name}: {first:.0f} in the first third, {last:.0f} in the last")
        if name in HELD and last > first * HELD[name][0] + HELD[name][1]:
            grown.append(name)
    busy = (samples[-1]["task_s"] - samples[0]["task_s"]) / (samples[-1]["s"] - samples[0]["s"])
    print(f"busy: {busy * 100:.0f} % of a core; at the end: {samples[-1]['packets']}")
    assert not grown, "these have grown: " + ", ".join(grown)
    # A person takes it for fluid: on a machine that has other things to do, too.
    assert statistics.median(one["frame_ms"] for one in samples) < 50, "the page is not fluid"


def main():
    work.mkdir(parents=True, exist_ok=True)
    (work / "m.pml").write_text(MODEL)
    (work / "say.json").write_text(SAY)
    gateway = subprocess.Popen([tav, "gateway", "-t", "m.pml", "--port-file", "port", "--quiet", "--until-eof", "--web", "0"],
                               cwd=work, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    place = next(line for line in gateway.stdout if "the page is at" in line).split()[-1]
    load = subprocess.Popen([tav, "load", "127.0.0.1:" + (work / "port").read_text().strip(), "--ca",
                             "gateway-certificates/ca.pem", "-t", "m.pml", "--file", "say.json", "--rate", "1000",
                             "--clients", "1", "--duration", str(int(minutes * 60 + 180))],
                            cwd=work, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        browser = Browser(chromium)
        browser.screen(1280, 900, False)
        browser.call("Page.navigate", url=place)
        browser.wait("document.readyState == 'complete' && document.getElementById('counts').textContent != '…'")
        try:
            samples = watch(browser, gateway, load)
            browser.shot(work / "open.png")
        finally:
            browser.close()
        judge(samples)
        assert not browser.complaints, browser.complaints
    finally:
        load.terminate()
        load.wait()
        gateway.stdin.close()
        gateway.wait()


if __name__ == "__main__":
    main()
