"""Rows as text."""

import statistics

HEAD = ("What", "Against", "Ratio", "Goal", "Measured", "Rounds")
RULE = ("---", "---", "---:", "---", "---", "---:")


def number(value):
    if value == 0:
        return "0"
    if abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


def with_unit(value, unit):
    return f"{number(value)} {unit}".strip()


def common_parts(row):
    """The part of each pair that is the same on both sides by nature."""
    same = [row.get("common", 0)] * len(row["ours"])
    return row.get("ours_common", same), row.get("other_common", same)


def ratio(row):
    """The median over pairs measured in turns, so that both sides saw the same machine."""
    ours_common, other_common = common_parts(row)
    return statistics.median((one - less) / (other - other_less) for one, other, less, other_less
                             in zip(row["ours"], row["other"], ours_common, other_common))


def is_comparison(row):
    return "other" in row


def judged(row):
    """The value that is compared with the goal."""
    if is_comparison(row):
        return ratio(row)
    return max(row["values"])


def missed(row):
    return row.get("goal") is not None and judged(row) > row["goal"]


def goal(row):
    if row.get("goal") is None:
        return ""
    text = f"{row['goal']:g} {'' if is_comparison(row) else row['unit']}".strip()
    return f"{text}, **missed**" if missed(row) else text


def measured(row):
    unit = row["unit"]
    if is_comparison(row):
        text = (f"{number(statistics.median(row['ours']))} to "
                f"{with_unit(statistics.median(row['other']), unit)}")
    elif row.get("goal") is not None:
        text = f"{with_unit(judged(row), unit)}" + (", the worst" if len(row["values"]) > 1 else "")
    else:
        text = with_unit(statistics.median(row["values"]), unit)
    return "; ".join(filter(None, (text, row.get("note"))))


def cells(row):
    return (row["what"], row.get("against", ""),
            f"{ratio(row):.2f}" if is_comparison(row) else "", goal(row), measured(row),
            str(len(row["ours"] if is_comparison(row) else row["values"])))


def table(rows, columns=len(HEAD)):
    lines = [HEAD, RULE, *map(cells, rows)]
    return "\n".join("| " + " | ".join(line[:columns]) + " |" for line in lines)


def plain_text(row):
    what, against, factor, limit, text, _ = cells(row)
    judgement = f" (goal {limit.replace('*', '')})" if limit else ""
    if factor:
        return f"{what}: {factor} of {against}{judgement}; {text}"
    return f"{what}: {text}{judgement}"
