"""Reads an SRT file with the module srt and compares its cues with a JSON list of [number, start, end, text],
times in milliseconds."""

import json
import sys
from datetime import timedelta

import srt


def main(exported, expected):
    with open(exported, encoding="utf-8", newline="") as file:
        cues = list(srt.parse(file.read()))
    millisecond = timedelta(milliseconds=1)
    read = [[cue.index, cue.start // millisecond, cue.end // millisecond, cue.content] for cue in cues]
    with open(expected, encoding="utf-8") as file:
        wanted = json.load(file)
    if read != wanted:
        sys.exit("read: " + json.dumps(read, ensure_ascii=False, indent=1))


main(*sys.argv[1:])
