#!/usr/bin/env python3
"""Compares a media database with what exiftool and ffprobe say about the same files.

Usage: compare.py FOLDER DATABASE EXPLAINED [ANSWERS]
FOLDER is the storage that the service has scanned. ANSWERS keeps the tools' answers, which take
most of the time, for the next run. Exit status: 0 nearly everything agrees, 1 not, 2 wrong usage.
"""
import collections
import concurrent.futures
import fnmatch
import json
import os
import re
import sqlite3
import subprocess
import sys

from fields import FIELDS, Answers, same_value
from kinds import KINDS, exif_kind, is_worth_asking, media_kind

MAX_DIFFERENT = 1 / 1000  # of all values
MAX_UNLISTED = 1 / 100    # of all media files
BATCH = 200               # files for one run of exiftool
EXIFTOOL = ["exiftool", "-json", "-q", "-q", "-a", "-G1:4", "-charset", "filename=utf8", "-charset",
            "iptc=latin", "-api", "LargeFileSupport=1", "-api", "QuickTimeUTC=1"]
FFPROBE = ["ffprobe", "-v", "quiet", "-of", "json", "-show_format", "-show_streams"]
ENVIRONMENT = dict(os.environ, TZ="UTC", LC_ALL="C.UTF-8")


def visible_files(folder):
    """Paths below the folder that the service would look at: see "hidden" in kinds.py."""
    for at, folders, names in os.walk(folder):
        if ".nomedia" in names:
            folders.clear()
            continue
        folders[:] = sorted(name for name in folders if not name.startswith("."))
        for name in sorted(names):
            path = os.path.join(at, name)
            if os.path.isfile(path) and not os.path.islink(path):
                yield os.path.relpath(path, folder)


def run_json(command, folder, text=None):
    result = subprocess.run(command, cwd=folder, env=ENVIRONMENT, capture_output=True,
                            input=text, timeout=600, check=False)
    try:
        return json.loads(result.stdout.decode("utf-8", "surrogateescape") or "null")
    except ValueError:
        return None


def joined_copies(answer):
    """One value a tag: a tag that is there more than once is a list in our database too."""
    tags = {}
    for key, value in sorted(answer.items(), key=lambda one: one[0].count(":")):
        name = re.sub(r":Copy\d+:", ":", key)
        if name not in tags:
            tags[name] = value
        elif isinstance(value, str) or name.startswith("File:Image"):  # sizes: an icon's
            known = tags[name] if isinstance(tags[name], list) else [tags[name]]
            if value not in known:
                tags[name] = known + [value]
    return tags


def ask_exiftool(folder, paths):
    """One answer for each path. Genres and lenses are asked for again as words: -n has numbers."""
    text = "".join(f"./{path}\n" for path in paths).encode("utf-8", "surrogateescape")
    found = {}
    for more, mark in ((["-n"], ""), (["-Genre", "-LensID", "-FileType"], "#")):
        for answer in run_json(EXIFTOOL + more + ["-@", "-"], folder, text) or []:
            known = found.setdefault(os.path.normpath(answer.pop("SourceFile")), {})
            known.update((key + mark, value) for key, value in joined_copies(answer).items()
                         if not str(value).startswith("(Binary data") or "Picture" in key or "Cover" in key)
    return [found.get(path, {}) for path in paths]


def ask_ffprobe(folder, path):
    try:
        return run_json(FFPROBE + ["file:" + path], folder) or {}
    except subprocess.TimeoutExpired:
        return {}


def ask_tools(folder, paths, answers_file):
    """{path: [exiftool's answer, ffprobe's answer]}; files that have not changed are not asked about."""
    def mark(path):
        facts = os.stat(os.path.join(folder, path))
        return [facts.st_size, facts.st_mtime_ns]

    kept = {}
    if answers_file and os.path.exists(answers_file):
        with open(answers_file, encoding="utf-8", errors="surrogateescape") as file:
            kept = json.load(file)
    marks = {path: mark(path) for path in paths}
    new = [path for path in paths if kept.get(path, [None])[0] != marks[path]]
    batches = [new[at:at + BATCH] for at in range(0, len(new), BATCH)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 1) as pool:
        exif = [one for batch in pool.map(lambda b: ask_exiftool(folder, b), batches) for one in batch]
        # exiftool is the better judge of pictures, and ffprobe would take most of the time.
        probes = list(pool.map(lambda path, told: {} if exif_kind(told) == "image" else ask_ffprobe(folder, path),
                               new, exif))
    kept.update((path, [marks[path], *both]) for path, *both in zip(new, exif, probes))
    if answers_file and new:
        with open(answers_file, "w", encoding="utf-8", errors="surrogateescape") as file:
            json.dump(kept, file)
    return {path: kept[path][1:] for path in paths}


def read_items(database):
    """{path: row} of the database. Columns differ between versions of the schema."""
    connection = sqlite3.connect(f"file:{database}?mode=ro", uri=True)
    connection.text_factory = lambda raw: raw.decode("utf-8", "surrogateescape")
    connection.row_factory = sqlite3.Row
    rows = connection.execute("SELECT item.*, folder.path AS folder_path FROM item"
                              " JOIN folder ON folder.number = item.folder")
    return {os.path.join(row["folder_path"], row["name"]): dict(row) for row in rows}


def read_explained(file):
    """[(pattern, field, reason)] of lines "pattern field: reason"."""
    with open(file, encoding="utf-8") as lines:
        for line in lines:
            if line.strip() and not line.startswith("#"):
                head, reason = line.split(": ", 1)
                yield (*head.rsplit(" ", 1), reason.strip())


class Comparison:
    def __init__(self, explained):
        self.explained = list(explained)
        self.agree = collections.Counter()      # by (field, extension)
        self.different = []                     # (path, field, ours, theirs)
        self.excused = []                       # the same, and the reason
        self.media = collections.Counter()      # by extension
        self.unlisted = []                      # (path, kind)
        self.excused_unlisted = []

    def reason(self, path, field):
        for pattern, wanted, reason in self.explained:
            if (wanted == field or (wanted == "*" and field != "listed")) and fnmatch.fnmatchcase(path, pattern):
                return reason
        return None

    def add(self, path, field, ours, theirs):
        line = (path, field, str(ours), " | ".join(map(str, theirs)) or "-")
        if ours and theirs and any(same_value(field, ours, one) for one in theirs):
            self.agree[field, extension(path)] += 1
        elif reason := self.reason(path, field):
            self.excused.append((*line, reason))
        else:
            self.different.append(line)

    def add_unlisted(self, path, kind):
        if reason := self.reason(path, "listed"):
            self.excused_unlisted.append((path, kind, reason))
        else:
            self.unlisted.append((path, kind))


def extension(path):
    return os.path.splitext(path)[1][1:].lower()


def compare_item(comparison, path, item, kind, exif, probe):
    comparison.add(path, "kind", KINDS[item["type"]], [kind])
    answers = Answers(kind, exif, probe)
    for field, column in FIELDS.items():
        if not column <= item.keys():
            continue
        ours, strong, weak = answers.values(field, item)
        # A weak answer may be what we show, but nobody misses it.
        if ours or strong:
            comparison.add(path, field, ours, strong + weak if ours else strong)


def compare(folder, database, explained, answers_file):
    items = read_items(database)
    paths = [path for path in visible_files(folder) if path in items or is_worth_asking(path)]
    told = ask_tools(folder, paths, answers_file)
    comparison = Comparison(read_explained(explained))
    for path in paths:
        exif, probe = told[path]
        kind = media_kind(path, exif, probe)
        if not kind:
            continue
        comparison.media[extension(path)] += 1
        if path in items:
            compare_item(comparison, path, items[path], kind, exif, probe)
        else:
            comparison.add_unlisted(path, kind)
    return comparison


def print_table(title, comparison, column):
    """column: which part of (field, extension) makes a line."""
    counts = collections.defaultdict(lambda: [0, 0, 0])
    for key, count in comparison.agree.items():
        counts[key[column]][0] += count
    for at, lines in ((1, comparison.different), (2, comparison.excused)):
        for line in lines:
            counts[(line[1], extension(line[0]))[column]][at] += 1
    unlisted = collections.Counter(extension(line[0]) for line in comparison.unlisted)
    if column == 1:
        for name in unlisted:
            counts[name]  # pylint: disable=pointless-statement
    print(f"\n{title:12} {'agree':>7} {'differ':>7} {'explained':>9}" +
          (f" {'files':>6} {'unlisted':>8}" if column == 1 else ""))
    for name, numbers in sorted(counts.items()):
        print(f"{name:12} {numbers[0]:7} {numbers[1]:7} {numbers[2]:9}" +
              (f" {comparison.media[name]:6} {unlisted[name]:8}" if column == 1 else ""))


def printable(text):
    return str(text).encode("utf-8", "replace").decode()[:200]


def report(comparison):
    """Prints everything; returns whether enough agrees."""
    def lines(title, found):
        if found:
            print(f"\n{title}")
            for line in sorted(found):
                print("  " + "  ".join(printable(part) for part in line))

    lines("explained differences (file, field, ours, theirs, reason)",
          [(a, b, f"[{c}]", f"[{d}]", e) for a, b, c, d, e in comparison.excused])
    lines("explained, not listed (file, kind, reason)", comparison.excused_unlisted)
    lines("differences (file, field, ours, theirs)",
          [(a, b, f"[{c}]", f"[{d}]") for a, b, c, d in comparison.different])
    lines("media files that are not listed (file, kind)", comparison.unlisted)
    print_table("field", comparison, 0)
    print_table("format", comparison, 1)
    agree, different = sum(comparison.agree.values()), len(comparison.different)
    media, unlisted = sum(comparison.media.values()), len(comparison.unlisted)
    print(f"\nvalues: {agree:,} agree, {different:,} differ ({len(comparison.excused):,} more are explained)")
    print(f"media files: {media:,}, not listed: {unlisted:,}"
          f" ({len(comparison.excused_unlisted):,} more are explained)")
    if media == 0:
        print("compare: no media file in the folder: nothing was compared", file=sys.stderr)
        return False
    return different < MAX_DIFFERENT * (agree + different) and unlisted < MAX_UNLISTED * media


def main():
    if len(sys.argv) not in (4, 5):
        print(__doc__, file=sys.stderr)
        return 2
    comparison = compare(*sys.argv[1:4], sys.argv[4] if len(sys.argv) == 5 else None)
    return 0 if report(comparison) else 1


if __name__ == "__main__":
    sys.exit(main())
