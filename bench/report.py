"""Tables and charts of the figures that bench/run found."""

import pathlib
import re
import statistics
import subprocess


def summary(values):
    return {"median": statistics.median(values), "least": min(values), "most": max(values)}


def rounded(value):
    """`value` with its numbers to five digits: more would only say how the machine felt."""
    if isinstance(value, dict):
        return {key: rounded(part) for key, part in value.items()}
    if isinstance(value, list):
        return [rounded(part) for part in value]
    return float(f"{value:.5g}") if isinstance(value, float) else value


def table(head, rows):
    """A Markdown table; all columns but the first stand to the right."""
    rows = [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in [head] + rows) for i in range(len(head))]

    def line(cells):
        padded = [cells[0].ljust(widths[0])]
        padded += [cell.rjust(width) for cell, width in zip(cells[1:], widths[1:])]
        return "| " + " | ".join(padded) + " |"

    rule = "|" + "|".join(["-" * (widths[0] + 2)] + ["-" * (w + 1) + ":" for w in widths[1:]]) + "|"
    return "\n".join([line(head), rule] + [line(row) for row in rows])


def size(count):
    for unit, name in ((1 << 30, "GB"), (1 << 20, "MB"), (1 << 10, "KB")):
        if count >= unit:
            return f"{count / unit:g} {name}"
    return f"{count} B"


def figure(value):
    """Three digits, and no exponent."""
    if value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.3g}" if value >= 1 else f"{value:.2f}"


def index(entries, section):
    """The entries of a benchmark program's section by case, candidate, threads and bytes."""
    return {(e["case"], e["candidate"], e["threads"], int(e["bytes"])): e
            for e in entries if e["section"] == section}


def sizes_in(found):
    return sorted({key[3] for key in found})


def report_sizes(results):
    """Of what was written, by how, and by what was asked for."""
    return {(e["case"], e["bytes"]): e["size"] for e in results["reports"]
            if e["section"] == "sizes"}


def cost_of_requests(results):
    rows = []
    for operation, costs in results["cost_of_requests"].items():
        if "libcurl" not in costs:
            continue
        bare, ours = costs["libcurl"], costs["library"]
        rows.append([operation.replace("-", " "), f"{bare['instructions']:,}",
                     f"{ours['instructions']:,}",
                     f"{ours['instructions'] / bare['instructions']:.4f}", bare["allocations"],
                     f"{ours['allocations'] - bare['allocations']:+}"])
    return table(["operation", "libcurl", "library", "ratio", "allocations", "library"], rows)


def requests(results):
    found = index(results["requests"], "requests")
    rows = []
    for (case, candidate, threads, size_), entry in found.items():
        if candidate != "library":
            continue
        bare = found[case, "libcurl", threads, size_]
        ratio = 1 / entry["over libcurl"]["wall"]["median"]
        cpu = entry["over libcurl"]["cpu"]["median"]
        rows.append([case.replace("-", " "), threads, f"{1 / entry['wall']['median']:,.0f}",
                     f"{1 / bare['wall']['median']:,.0f}", f"{ratio:.3f}",
                     f"{cpu:.3f}"])
    return table(["request", "threads", "library, 1/s", "libcurl, 1/s", "ratio",
                  "processor time, ratio"], rows)


def peers(results):
    found = index(results["requests"], "requests")
    rows = []
    for scheme in ("http", "https"):
        for threads in (1, 8):
            for who in ("library", "libcurl", "curlpp", "cpp-httplib", "Boost.Beast"):
                entry = found[f"service-Get {scheme}", who, threads, 300]
                rows.append([f"{scheme}, {threads} thread{'s' if threads > 1 else ''}: {who}",
                             f"{1 / entry['wall']['median']:,.0f}",
                             figure(entry["cpu"]["median"] * 1e6)])
    return table(["GET", "1/s", "processor time, us"], rows)


def costs(results):
    entries = [e for e in results["requests"] if e["section"] == "costs"]
    fresh = {e["candidate"]: e for e in entries}
    kept = {"http": "libcurl, connection kept", "https": "libcurl, TLS connection kept"}
    rows = [[e["candidate"], figure(e["wall"]["median"] * 1e6), figure(e["cpu"]["median"] * 1e6)]
            for e in entries]
    text = table(["request", "time, us", "processor time, us"], rows)
    for scheme, other in kept.items():
        ratio = fresh[scheme]["wall"]["median"] / fresh[other]["wall"]["median"]
        text += f"\n\nA fresh connection over a kept one, {scheme}: {ratio:.1f} times the time."
    return text


def json(results):
    found = {name: value["median"] for name, value in results["json"].items()}
    text = []
    for what, peer in (("read", "RapidEvents"), ("write", "RapidPretty")):
        rows = []
        for name, ours in sorted(found.items(), key=lambda item: (
                item[0].split("/")[2], int(item[0].split("/")[3]))):
            kind, who, shape, count = name.split("/")
            if kind != what or who != "LumJson":
                continue

            def of(other):
                return found[f"{what}/{other}/{shape}/{count}"]

            others = [of("nlohmann"), of(peer)]
            row = [f"{shape}, {size(int(count))}", f"{ours:,.0f}", f"{others[0]:,.0f}",
                   f"{ours / others[0]:.1f}", f"{others[1]:,.0f}", f"{ours / others[1]:.2f}"]
            if what == "read":
                row.append(f"{ours / of('RapidEventsExact'):.2f}")
            row.append(f"{ours / of('jsoncpp'):.0f}")
            rows.append(row)
        head = [{"read": "parse", "write": "ToStyledString"}[what], "LumJson, MB/s",
                "nlohmann, MB/s", "ratio", "RapidJSON, MB/s", "ratio"]
        head += (["over exact RapidJSON"] if what == "read" else []) + ["over jsoncpp"]
        text.append(table(head, rows))
    return "\n\n".join(text)


def reports(results):
    found = index(results["reports"], "reports")
    sizes = report_sizes(results)
    rows = []
    for count in sizes_in(found):

        def cpu(who):
            return found["report", who, 1, count]["cpu"]["median"] * 1e6

        ours = found["report", "library", 1, count]
        ratio = ours["over nlohmann, zlib 6, libcurl"]["cpu"]["median"]
        rows.append([size(count), figure(cpu("library")), figure(cpu("nlohmann, zlib 6, libcurl")),
                     f"{ratio:.3f}", figure(cpu("nlohmann, zlib 1, libcurl")),
                     figure(cpu("nlohmann compact, zlib 6, libcurl")),
                     figure(cpu("library, plain")),
                     f"{sizes['gzip', count] / sizes['styled', count] * 100:.0f} %",
                     f"{sizes['zlib 6', count] / sizes['styled', count] * 100:.0f} %"])
    return table(["report", "library, us", "nlohmann, zlib 6, us", "ratio", "zlib 1, us",
                  "zlib 6, compact, us", "library, plain, us", "gzip left", "zlib 6 left"], rows)


def gzip(results):
    found = index(results["reports"], "gzip")
    rows = []
    for count in sizes_in(found):
        ours, six, one = (found["one-shot", who, 1, count]["cpu"]["median"] * 1e6
                          for who in ("library", "zlib 6", "zlib 1"))
        rows.append([size(count), figure(ours), figure(six), f"{six / ours:.1f}", figure(one),
                     f"{one / ours:.1f}"])
    return table(["GzipCompress", "library, us", "zlib 6, us", "times", "zlib 1, us", "times"], rows)


def archives(results):
    rows = []
    for title, found in results["archives"].items():
        ours, tar = found["library"], found["tar czf"]
        pigz = found["tar | pigz"]
        wall = ours["wall"]["median"] / tar["wall"]["median"]
        cpu = ours["cpu"]["median"] / tar["cpu"]["median"]
        rows.append([title, f"{ours['wall']['median']:.2f}", f"{tar['wall']['median']:.2f}",
                     f"1/{1 / wall:.1f}", f"{ours['cpu']['median']:.2f}",
                     f"{tar['cpu']['median']:.2f}", f"1/{1 / cpu:.1f}",
                     f"{pigz['wall']['median']:.2f}", f"{pigz['cpu']['median']:.2f}",
                     f"{ours['peak']['most'] / 1024:.1f} MiB",
                     f"{ours['size'] / tar['size'] * 100 - 100:+.0f} %"])
    return table(["archive", "library, s", "tar czf, s", "ratio", "CPU, s", "tar czf, CPU s",
                  "ratio", "tar, pigz, s", "CPU, s", "peak", "size over tar's"], rows)


def compress_and_upload(results):
    rows = []
    for title, found in results["archives"].items():
        ours, theirs = found["library, with upload"], found["tar czf, curl -T"]
        ratio = ours["wall"]["median"] / theirs["wall"]["median"]
        rows.append([title, f"{ours['wall']['median']:.2f}", f"{theirs['wall']['median']:.2f}",
                     f"1/{1 / ratio:.1f}", f"{ours['peak']['most'] / 1024:.1f} MiB"])
    return table(["compress and upload", "library, s", "tar czf, curl -T, s", "ratio",
                  "peak"], rows)


def transfers(results):
    found = results["transfers"]
    rows = []
    pairs = [("UploadLog", "curl -T")]
    for place in ("disk", "memory"):
        pairs += [(f"DownloadFile to {place}", f"curl -o to {place}"),
                  (f"DownloadFile to {place}", f"libcurl with its options to {place}")]
    for who, peer in pairs:
        ours, theirs = found[who], found[peer]
        ratio = ours["cpu"]["median"] / theirs["cpu"]["median"]
        more = (ours["peak"]["median"] - found[f"{who}, 1 KiB"]["peak"]["median"]) / 1024
        rows.append([f"{who} over {peer.split(' to ')[0]}", f"{ours['cpu']['median']:.3f}",
                     f"{theirs['cpu']['median']:.3f}", f"{ratio:.2f}",
                     f"{ours['wall']['median']:.2f}", f"{theirs['wall']['median']:.2f}",
                     f"{more:+.2f} MiB"])
    return table(["1 GiB", "CPU, s", "curl, CPU s", "ratio", "wall, s", "curl, wall s",
                  "memory over 1 KiB's"], rows)


def growth_lines(results):
    lines = {}
    for entry in results["growth"]:
        lines.setdefault(entry["case"], {})[int(entry["bytes"])] = entry["wall"]["median"]
    return lines


def growth(results):
    lines = growth_lines(results)
    counts = sorted({count for line in lines.values() for count in line})
    return table(["ns per byte"] + [size(count) for count in counts],
                 [[name] + [figure(line[count] / count * 1e9) for count in counts]
                  for name, line in lines.items()])


def thread_lines(results):
    return {e["threads"]: e for e in results["requests"] if e["section"] == "threads"}


def threads(results):
    lines = thread_lines(results)
    return table(["threads", "requests, 1/s", "processor time per request, us"],
                 [[count, f"{1 / e['wall']['median']:,.0f}", figure(e["cpu"]["median"] * 1e6)]
                  for count, e in sorted(lines.items())])


def by_size(files):
    return dict(sorted(files.items(), key=lambda item: -item[1]))


def load(results):
    found = results["load"]
    large = {name: count for name, count in found["dependencies"].items() if count >= 1 << 20}
    small = found["dependencies"].keys() - large.keys()
    files = {**by_size(found["own"]), **by_size(large), f"{len(small)} smaller ones":
             sum(found["dependencies"][name] for name in small)}
    return "\n\n".join([
        table(["file, stripped", "KiB", "share"],
              [[name, f"{count / 1024:,.0f}", f"{count / sum(files.values()) * 100:.1f} %"]
               for name, count in files.items()]),
        table(["dlopen", "ms"],
              [[name, f"{value['median'] / 1000:.2f}"] for name, value in found["dlopen"].items()]),
        table(["idle object", "bytes"],
              [[name, f"{count:,}"] for name, count in found["idle"].items()])])


def links(results):
    """The link speed below which zlib's level 6, smaller and slower, is done earlier."""
    rows = []
    found = index(results["reports"], "gzip")
    sizes = report_sizes(results)

    def speed(bytes_saved, seconds_spent):
        bits = bytes_saved * 8 / seconds_spent if seconds_spent > 0 else 0
        return f"{bits / 1e6:,.1f} Mbit/s"

    for count in sizes_in(found):
        spent = (found["one-shot", "zlib 6", 1, count]["cpu"]["median"] -
                 found["one-shot", "library", 1, count]["cpu"]["median"])
        plain = found["one-shot", "library", 1, count]["cpu"]["median"]
        rows.append([f"report of {size(count)}",
                     speed(sizes["gzip", count] - sizes["zlib 6", count], spent),
                     speed(sizes["styled", count] - sizes["gzip", count], plain)])
    for title, archive in results["archives"].items():
        spent = archive["tar czf"]["wall"]["median"] - archive["library"]["wall"]["median"]
        rows.append([title, speed(archive["library"]["size"] - archive["tar czf"]["size"], spent),
                     ""])
    return table(["what is sent", "zlib 6 wins below", "uncompressed wins above"], rows)


def setting(results):
    machine = results["machine"]
    versions = ", ".join(f"{name} {version}" for name, version in machine["versions"].items())
    return (f"{results['date']}, {results['rounds']} round{'s' if results['rounds'] > 1 else ''}: "
            f"{machine['processor']}, {machine['processors']} processors, "
            f"{int(machine['memory']) / 2**20:.0f} GiB, {machine['system']}, "
            f"Linux {machine['kernel']}, {machine['architecture']}.\n\n{versions}.")


# Each table and the section of the results that it is made from.
TABLES = {setting: "machine", cost_of_requests: "cost_of_requests",
          requests: "requests", peers: "requests", costs: "requests", json: "json",
          reports: "reports", gzip: "reports", archives: "archives",
          compress_and_upload: "archives", transfers: "transfers", growth: "growth",
          threads: "requests", load: "load", links: "reports"}

# The charts that stand below a table.
CHARTS = {peers: [("requests", "Processor time per GET")],
          json: [("json-read", "Reading"), ("json-write", "Writing")],
          reports: [("reports", "Processor time per report")],
          archives: [("archives", "Seconds per archive")],
          growth: [("growth", "Time by size")],
          threads: [("threads", "Processor time by threads")]}


def plot(out, name, commands, blocks):
    """Draws OUT/NAME.svg. `blocks` are the data that the commands know as $d0, $d1, ..."""
    script = ["set terminal svg size 760,420 dynamic enhanced background '#ffffff' "
              "font 'Helvetica,13'", f"set output '{out / (name + '.svg')}'",
              "set border 3 lc '#888888'", "set tics nomirror", "set grid lc '#dddddd'",
              "set key left top"]
    for number, rows in enumerate(blocks):
        script.append(f"$d{number} << EOD")
        script += [" ".join(str(cell) for cell in row) for row in rows]
        script.append("EOD")
    subprocess.run(["gnuplot"], input="\n".join(script + commands) + "\n", text=True, check=True)


def lines_plot(out, name, titles, blocks, labels, scale):
    commands = [f"set xlabel '{labels[0]}'", f"set ylabel '{labels[1]}'", *scale]
    commands.append("plot " + ", ".join(
        f"$d{i} using 1:2 with linespoints lw 2 pt 7 ps 0.6 title '{title}'"
        for i, title in enumerate(titles)))
    plot(out, name, commands, blocks)


def bars_plot(out, name, titles, rows, label, scale):
    """`rows` hold a quoted name and a number for each of `titles`."""
    commands = [f"set ylabel '{label}'", "set style data histograms",
                "set style histogram clustered gap 1", "set style fill solid 0.85 noborder",
                "set key outside top center horizontal", *scale]
    commands.append("plot " + ", ".join(
        f"$d0 using {i + 2}:xtic(1) title '{title}'" for i, title in enumerate(titles)))
    plot(out, name, commands, [rows])


def charts(results, out):
    if "growth" in results:
        lines = growth_lines(results)
        lines_plot(out, "growth", list(lines),
                   [sorted(line.items()) for line in lines.values()],
                   ("bytes", "seconds"),
                   ["set logscale xy", "set format x '10^{%L}'", "set format y '10^{%L}'"])
    if "requests" in results:
        lines = thread_lines(results)
        lines_plot(out, "threads", ["processor time per request"],
                   [[(count, e["cpu"]["median"] * 1e6) for count, e in sorted(lines.items())]],
                   ("threads", "microseconds"), ["set yrange [0:*]", "set xtics (1, 2, 4, 8, 16)"])
        found = index(results["requests"], "requests")
        who = ("library", "libcurl", "curlpp", "cpp-httplib", "Boost.Beast")
        bars_plot(out, "requests", ["http", "https"],
                  [[f'"{name}"'] + [found[f"service-Get {scheme}", name, 1, 300]["cpu"]["median"]
                                    * 1e6 for scheme in ("http", "https")] for name in who],
                  "processor time per GET, us", ["set logscale y", "set yrange [10:*]"])
    if "json" in results:
        found = {name: value["median"] for name, value in results["json"].items()}
        sizes = sorted(int(name.split("/")[3]) for name in found
                       if name.startswith("read/LumJson/records/"))
        for what, who in (("read", ("LumJson", "RapidEvents", "nlohmann", "jsoncpp")),
                          ("write", ("LumJson", "RapidPretty", "nlohmann", "jsoncpp"))):
            bars_plot(out, f"json-{what}", who,
                      [[f'"{size(count)}"'] + [found[f"{what}/{name}/records/{count}"]
                                               for name in who] for count in sizes],
                      "MB/s", [])
    if "reports" in results:
        found = index(results["reports"], "reports")
        who = ("library", "nlohmann, zlib 6, libcurl", "nlohmann, zlib 1, libcurl")
        lines_plot(out, "reports", who,
                   [[(count, found["report", name, 1, count]["cpu"]["median"])
                     for count in sizes_in(found)] for name in who],
                   ("bytes of the document", "processor seconds per report"),
                   ["set logscale xy", "set format x '10^{%L}'", "set format y '10^{%L}'"])
    if "archives" in results:
        who = ("library", "tar | pigz", "tar czf")
        bars_plot(out, "archives", who,
                  [[f'"{title}"'] + [found[name]["wall"]["median"] for name in who]
                   for title, found in results["archives"].items()],
                  "seconds", ["set logscale y", "set yrange [0.01:*]"])


def replaced(text, name, made):
    """`text` with `made` between the two marks of `name`."""
    return re.sub(f"(<!-- begin {name} -->\n).*?(<!-- end {name} -->)",
                  lambda match: f"{match[1]}\n{made}\n\n{match[2]}", text, flags=re.S)


def write(results, out):
    """Prints the tables, puts them into OUT.md where that has their markers, draws the charts."""
    page = pathlib.Path(str(out) + ".md")
    text = page.read_text() if page.exists() else ""
    for make, section in TABLES.items():
        if section not in results or (make is links and "archives" not in results):
            continue
        made = make(results)
        print(f"\n== {make.__name__.replace('_', ' ')}\n\n{made}")
        for chart, title in CHARTS.get(make, []):
            made += f"\n\n![{title}]({out.name}/{chart}.svg)"
        text = replaced(text, make.__name__, made)
    if page.exists():
        page.write_text(text)
    charts(results, out)
