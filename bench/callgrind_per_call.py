#!/usr/bin/env python3
"""Instructions per call of one function from a callgrind output file.

    callgrind_per_call.py OUT FUNCTION   ->  prints "<calls> <instructions per call>"

Sums every call record of FUNCTION (its name as callgrind writes it, up to the
opening parenthesis) over all its callers: inclusive cost, so the figure holds
everything the function does, syscalls excluded (callgrind counts user-space
instructions only).
"""
import re
import sys


def per_call(path, function):
    names = {}
    calls = cost = 0
    pending = None  # calls count of the record whose cost line comes next
    target = False
    with open(path, encoding="utf-8", errors="replace") as out:
        for line in out:
            line = line.rstrip("\n")
            m = re.match(r"c?fn=\((\d+)\)(?: (.*))?$", line)
            if m:
                if m.group(2):
                    names[m.group(1)] = m.group(2)
                if line.startswith("cfn="):
                    name = names.get(m.group(1), "")
                    target = name.split("(")[0] == function
                continue
            if line.startswith("calls="):
                pending = int(line.split("=")[1].split()[0]) if target else None
                continue
            if pending is not None:
                fields = line.split()
                cost += int(fields[1]) if len(fields) > 1 else 0
                calls += pending
                pending = None
                target = False
    return calls, cost


def main():
    calls, cost = per_call(sys.argv[1], sys.argv[2])
    print(calls, cost // calls if calls else 0)


if __name__ == "__main__":
    main()
