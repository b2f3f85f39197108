"""A synchronisation over a network link, as users have it."""

from ..server import SKETCH_SIZE, sketch_name
from .synchronisation import curl, curl_start, responsiveness, synchronise

LINKS = ((20, 30), (100, 10))  # Mbit/s, ms there and back
COUNTS = (20, 100, 1000)
ROUNDS = {20: 15, 100: 7, 1000: 3}


def measure(bench):
    one_start = curl_start(bench)
    with bench.server() as server:
        for count in COUNTS[:1] if bench.short else COUNTS:
            server.publish(count)
            for rate, round_trip in LINKS:
                with bench.link(server, rate, round_trip) as link:
                    measure_one(bench, link, count, one_start)


def measure_one(bench, link, count, one_start):
    names = [sketch_name(number) for number in range(count)]
    what = f"{count:,} missing sketches over {link.name}"
    key = f"link/{link.rate}/{count}"
    taken = bench.in_turns(what, bench.repeats(ROUNDS[count], 1), {
        "ours": lambda: synchronise(bench, link.address, count),
        "curl": lambda: curl(bench, link.address, names, one_start),
        "limit": lambda: curl(bench, link.address, ["all"], one_start)["fetched"]})
    ours = [run["time"] for run in taken["ours"]]
    bench.compare(f"{key}/curl", what, "curl --parallel, each file flushed", "ms", ours,
                  [run["flushed"] for run in taken["curl"]], goal=1.05)
    bench.compare(f"{key}/unflushed", what, "curl --parallel, nothing flushed", "ms", ours,
                  [run["fetched"] for run in taken["curl"]])
    bench.compare(f"{key}/limit", what, "the link's limit: curl, all as one file", "ms", ours,
                  taken["limit"])
    responsiveness(bench, key, what, taken["ours"])
    if count == COUNTS[-1]:  # fewer are there before the connection has found the link's rate
        bench.compare(f"link/{link.rate}/itself", f"The link itself, {count:,} sketches as one file "
                      f"over {link.name}", "its rate and round trips", "ms", taken["limit"],
                      [link.least(SKETCH_SIZE * count)] * len(ours), goal=1.05)
