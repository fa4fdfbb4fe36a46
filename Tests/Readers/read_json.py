"""Reads a JSON export and compares it with the expected value, and each segment's speaker with the list."""

import json
import sys


def main(exported, expected):
    with open(exported, encoding="utf-8") as file:
        read = json.load(file)
    with open(expected, encoding="utf-8") as file:
        wanted = json.load(file)
    if read != wanted:
        sys.exit("read: " + json.dumps(read, ensure_ascii=False, indent=1))
    if [speaker["index"] for speaker in read["speakers"]] != list(range(len(read["speakers"]))):
        sys.exit("speakers are not numbered in their order")


main(*sys.argv[1:])
