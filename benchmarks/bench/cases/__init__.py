"""The sections of benchmarks/run, in their order."""

from . import catalogue, idle, links, monitor, query, start, synchronisation, update

SECTIONS = {
    "start": start.measure,
    "list": catalogue.measure,
    "link": links.measure,
    "synchronisation": synchronisation.measure,
    "unchanged": synchronisation.measure_unchanged,
    "query": query.measure,
    "update": update.measure,
    "fullflash": update.measure_full,
    "idle": idle.measure,
    "monitor": monitor.measure,
    "fullmonitor": monitor.measure_full,
}
