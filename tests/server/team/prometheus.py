"""A strict reader of Prometheus' text format, version 0.0.4."""

import math
import re

_NAME = r"[a-zA-Z_:][a-zA-Z0-9_:]*"
_LABEL = r'([a-zA-Z_][a-zA-Z0-9_]*)="((?:[^"\\\n]|\\\\|\\"|\\n)*)"'
_SAMPLE = re.compile(rf"({_NAME})(?:\{{({_LABEL}(?:,{_LABEL})*)\}})? (\S+)")
_UNITS = ("_seconds", "_bytes", "_jobs", "_answers", "_connections", "_info")


def parsed(text):
    """{metric: (type, {(suffix, labels): value})}; raises ValueError for whatever is not allowed."""
    if not text.endswith("\n"):
        raise ValueError("the last line does not end")
    metrics = {}
    current = None
    for line in text[:-1].split("\n"):
        if line.startswith("# HELP "):
            name, explanation = line[7:].split(" ", 1)
            if not re.fullmatch(_NAME, name) or not explanation.strip():
                raise ValueError(f"no help: {line}")
            if name in metrics:
                raise ValueError(f"{name} twice")
            current = name
            metrics[name] = (None, {})
        elif line.startswith("# TYPE "):
            name, kind = line[7:].split(" ")
            if name != current or metrics[name][0] or metrics[name][1]:
                raise ValueError(f"out of place: {line}")
            if kind not in ("counter", "gauge", "histogram", "summary", "untyped"):
                raise ValueError(f"no type: {line}")
            metrics[name] = (kind, {})
        else:
            found = _SAMPLE.fullmatch(line)
            if not found:
                raise ValueError(f"no sample: {line!r}")
            name = found[1]
            kind = metrics[current][0]
            suffix = name[len(current):] if name.startswith(current) else None
            if suffix not in (("_bucket", "_sum", "_count") if kind == "histogram" else ("",)):
                raise ValueError(f"{name} below {current}")
            labels = re.findall(_LABEL, found[2] or "")
            if len({label for label, _ in labels}) != len(labels):
                raise ValueError(f"a label twice: {line}")
            key = (suffix, tuple(sorted(labels)))
            if key in metrics[current][1]:
                raise ValueError(f"a sample twice: {line}")
            value = float(found[found.lastindex])
            if math.isnan(value) or (kind == "counter" and value < 0):
                raise ValueError(f"no figure: {line}")
            metrics[current][1][key] = value
    for name, (kind, samples) in metrics.items():
        _check(name, kind, samples)
    return metrics


def _check(name, kind, samples):
    if kind is None:
        raise ValueError(f"{name} has no type")
    if (kind == "counter") != name.endswith("_total"):
        raise ValueError(f"{name} is a {kind}")
    if kind != "counter" and not name.endswith(_UNITS):
        raise ValueError(f"{name} does not name its unit")
    if kind == "histogram":
        buckets = [(float(dict(labels)["le"]), value) for (suffix, labels), value in samples.items()
                   if suffix == "_bucket"]
        if buckets != sorted(buckets) or [v for _, v in buckets] != sorted(v for _, v in buckets):
            raise ValueError(f"{name} does not grow")
        if buckets[-1] != (math.inf, samples[("_count", ())]) or ("_sum", ()) not in samples:
            raise ValueError(f"{name} does not add up")
