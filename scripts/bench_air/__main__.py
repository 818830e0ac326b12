#!/usr/bin/python3
"""How long a stream is off the air: faults of encoder, line and source, with the companion, without it, under supervisord
and in a shell loop. Every measurement has a network of its own: the sender in one namespace, a router in another, and the
receiver with a relay before a real nginx. The relay takes the times; a line of figures for each fault and system."""
import argparse
import concurrent.futures
import json
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[1])]

from faults import FAULTS, Place # noqa: E402 (the path comes first)
from receiver import NEVER # noqa: E402
from systems import SYSTEMS, WATCHING, command_of, end # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
LOGS = HERE.parents[1] / "out/bench-air" # what the systems print
SETTLE = 6       # seconds on air before a fault: longer than a start may be refused
PATIENCE = 40    # seconds after a fault's end; then it counts as never back
USUAL = [name for name, fault in FAULTS.items() if fault.seconds < 600]
OTHER_LEG = (0.5, 0.5) # seconds of its largest gap: median and worst


def wait_until(test, seconds):
    until = time.monotonic() + seconds
    while time.monotonic() < until:
        if test():
            return True
        time.sleep(0.02)
    return False


def time_to_failed(log):
    """Seconds from the start to the program's word that ffmpeg has failed."""
    def failure():
        return next((line for line in log.read_text().splitlines() if "ERRO: ffmpeg saiu" in line), None)
    wait_until(failure, PATIENCE)
    return int(failure().split()[0]) / 1000 if failure() else NEVER


def measure(options, name, system, folder, log):
    """Figures of one run: "off" are the seconds without media beyond the fault's own length."""
    fault = FAULTS[name]
    real = os.path.realpath(shutil.which("ffmpeg"))
    place = Place(fault, folder, real)
    with open(log, "wb") as output:
        process = subprocess.Popen(
            place.network.at_sender(command_of(system, options, folder, real, place.source, place.urls)),
            stdin=subprocess.PIPE, stdout=output, stderr=output, start_new_session=True)
    place.sender = process.pid
    try:
        if not fault.begin:
            return {"off": time_to_failed(log)}
        if not wait_until(lambda: all(relay.passed for relay in place.relays), 30):
            return {"off": NEVER, "start": False}
        time.sleep(SETTLE)
        began, over = fault.happen(place, options.number)
        relay = place.relays[0]
        # A fault that nobody ends is over when it is noticed: media of before may be on their way still.
        since = over if fault.end else began + 0.1
        wait_until(lambda: relay.back_after(since), PATIENCE)
        last = max((moment for moment in relay.passed if moment <= began + 0.1), default=began)
        first = relay.back_after(since) or NEVER
        figures = {"off": first - last - (over - began), "breaker": log.read_text().count("circuit breaker ABERTO")}
        if len(place.relays) > 1:
            time.sleep(2)
            figures["other"] = place.relays[1].largest_gap(began - 2)
        return figures
    finally:
        process.stdin.close()
        end(process)
        place.close()


def measured(options, fault, system, number):
    """The same from a process with namespaces of its own."""
    name = f"{fault} {system} {number}".replace(" ", "-")
    call = ["unshare", "--user", "--map-root-user", "--net", "--mount", sys.executable, "-B", str(HERE), options.pipeline,
            options.companion, "--fault", fault, "--system", system, "--number", str(number), "--one", str(LOGS / f"{name}.log")]
    done = subprocess.run(call, stdout=subprocess.PIPE, check=False)
    if done.returncode != 0:
        raise SystemExit(f"bench: {name} can't be measured")
    return json.loads(done.stdout)


def text(seconds):
    return "never" if seconds == NEVER else f"{seconds:.1f} s"


def row(fault, system, times, limit):
    """Prints a line of the table; False if it is over its limit."""
    median, worst = statistics.median(times), max(times)
    kept = not limit or median <= limit[0] and worst <= limit[1]
    verdict = "" if kept else f"   over the limit {limit[0]} / {limit[1]}"
    print(f"{fault:<22}{system:<13}median {text(median):>7}   worst {text(worst):>7}{verdict}", flush=True)
    return kept


def rows(fault, system, runs):
    """All that the runs of a fault give."""
    ours = system == "companion"
    if not any(each.get("start", True) for each in runs):
        print(f"{fault:<22}{system:<13}doesn't start", flush=True)
        return not ours
    kept = row(fault, system, [each["off"] for each in runs], FAULTS[fault].limits if ours else None)
    if any("other" in each for each in runs):
        gaps = [each.get("other", NEVER) for each in runs]
        kept = row("  gap of the other", system, gaps, OTHER_LEG if ours else None) and kept
    opened = sum(each.get("breaker", 0) for each in runs)
    if opened:
        print(f"{'':<22}{'':<13}circuit breaker opened {opened} times", flush=True)
    return kept and not (ours and opened)


def all_rows(options):
    systems = [system for system in SYSTEMS if system != "supervisord" or shutil.which(system)]
    kept = True
    due = []
    pool = concurrent.futures.ThreadPoolExecutor(options.beside)
    try:
        for fault in options.fault or USUAL:
            for system in options.system or systems:
                if not FAULTS[fault].begin and system not in WATCHING:
                    continue # nobody there who would notice
                runs = [pool.submit(measured, options, fault, system, number) for number in range(options.runs)]
                due.append((fault, system, runs))
        for fault, system, runs in due:
            kept = rows(fault, system, [each.result() for each in runs]) and kept
    finally:
        pool.shutdown(cancel_futures=True) # what has begun comes to its end
    return kept


def main():
    parser = argparse.ArgumentParser(prog="./dev bench air", description=__doc__)
    parser.add_argument("pipeline")
    parser.add_argument("companion")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--fault", action="append", choices=FAULTS, help="default: all but that of ten minutes")
    parser.add_argument("--system", action="append", choices=SYSTEMS,
                        help="default: all that are installed")
    parser.add_argument("--beside", type=int, default=2, help="measurements at a time, each with its encoders")
    parser.add_argument("--number", type=int, help=argparse.SUPPRESS)
    parser.add_argument("--one", type=pathlib.Path, help=argparse.SUPPRESS)
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143)) # nothing that it started lives on
    if options.one:
        with tempfile.TemporaryDirectory(prefix="corvane-bench.") as name:
            print(json.dumps(measure(options, options.fault[0], options.system[0], pathlib.Path(name), options.one)))
        return 0
    if not shutil.which("ffmpeg") or not pathlib.Path("/usr/sbin/nginx").exists():
        raise SystemExit("bench: ffmpeg or nginx isn't installed")
    LOGS.mkdir(parents=True, exist_ok=True)
    return 0 if all_rows(options) else 1


if __name__ == "__main__":
    sys.exit(main())
