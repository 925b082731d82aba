#!/usr/bin/env python3
"""Derives expected_verdicts.txt: whether the library's JSON dialect accepts each corpus file.

Written from the dialect's rules alone, independently of the C++ parser, so that the corpus test
compares two readings of the rules rather than the parser with itself:
  - the file is read as a NUL-terminated text: an empty file, or one starting with NUL, is refused,
    and a NUL byte ends the document;
  - every byte <= 0x20 is a blank; literals null/true/false are matched as prefixes;
  - numbers are digits with at most one dot, converted by strtod (out of range refuses);
  - strings end at the next double quote (no escapes), at most 4096 bytes;
  - arrays hold one value type (true and false differ); member names are at most 31 bytes and
    unique within their object; nesting beyond 20 levels is refused.
Usage: derive_verdicts.py > expected_verdicts.txt (run from this directory).
"""
import os
import sys
import threading

MAX_LAYER = 20
DBL_MIN = 2.2250738585072014e-308


class Refused(Exception):
    pass


class Dialect:
    def __init__(self, text):
        self.s = text + b"\0"
        self.n = len(self.s)
        self.layer = 0

    def byte(self, p):
        return self.s[p] if p < self.n else 0

    def blank(self, p):
        while p < self.n and self.s[p] <= 0x20:
            p += 1
        return p

    def value(self, p):
        """Returns (position after the value, type code)."""
        p = self.blank(p)
        self.layer += 1
        for word, kind in ((b"null", 0), (b"true", 1), (b"false", 2)):
            if p + len(word) < self.n and self.s[p:p + len(word)] == word:
                return p + len(word), kind
        if p < self.n and chr(self.byte(p)).isdigit():
            return self.number(p)
        if p + 1 >= self.n:
            raise Refused
        c = chr(self.byte(p))
        if c == '"':
            return self.string(p)
        if c == "[":
            return self.container(p, b"]")
        if c == "{":
            return self.container(p, b"}")
        raise Refused

    def number(self, p):
        start, dot = p, False
        while p < self.n:
            c = chr(self.s[p])
            if c == "." and not dot:
                dot = True
            elif not c.isdigit():
                break
            p += 1
        digits = self.s[start:p].decode()
        value = float(digits)
        if value == float("inf") or (0 < value < DBL_MIN) or (value == 0 and digits.strip("0.")):
            raise Refused  # strtod reports the range error through errno
        return p, 3

    def string(self, p):
        p = self.blank(p)
        if self.byte(p) != ord('"') or p + 1 >= self.n:
            raise Refused
        end = self.s.find(b'"', p + 1, self.n - 1)
        if end < 0 or end - p - 1 > 4096:
            raise Refused
        self.last_string = self.s[p + 1:end]
        return end + 1, 4

    def container(self, p, close):
        p = self.blank(p + 1)
        if p >= self.n:
            raise Refused
        if self.s[p:p + 1] == close and p + 1 < self.n:
            return p + 1, 5 if close == b"]" else 6
        level, kind, names = self.layer, None, set()
        while True:
            if close == b"}":
                p, _ = self.string(p)
                name = self.last_string
                if len(name) > 31:
                    raise Refused
                p = self.blank(p)
                if self.byte(p) != ord(":") or p + 1 >= self.n:
                    raise Refused
                p += 1
            self.layer = level
            p, child = self.value(p)
            if close == b"]":
                if kind is not None and child != kind:
                    raise Refused
                kind = child
            else:
                if name in names:
                    raise Refused
                names.add(name)
            p = self.blank(p)
            if self.layer > MAX_LAYER or p + 1 >= self.n or self.s[p:p + 1] not in (b",", close):
                raise Refused
            self.layer -= 1
            p += 1
            if self.s[p - 1:p] == close:
                return p, 5 if close == b"]" else 6


def accepts(data):
    text = data.split(b"\0", 1)[0]
    if not text:
        return False
    dialect = Dialect(text)
    try:
        p, _ = dialect.value(0)
    except Refused:
        return False
    return dialect.blank(p) >= dialect.n


def main():
    folder = os.path.join(os.path.dirname(os.path.abspath(__file__)), "test_parsing")
    for name in sorted(os.listdir(folder)):
        with open(os.path.join(folder, name), "rb") as f:
            verdict = "accept" if accepts(f.read()) else "reject"
        print(name, verdict)


if __name__ == "__main__":
    sys.setrecursionlimit(1000000)
    threading.stack_size(512 * 1024 * 1024)
    worker = threading.Thread(target=main)
    worker.start()
    worker.join()
