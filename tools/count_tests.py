#!/usr/bin/python3
"""Adds up the test cases of one CTest run.

usage: count_tests.py BUILD_DIR
Reads BUILD_DIR/test-results/ctest.xml (ctest --output-junit) and, for each entry that is a GoogleTest program or pytest, its
own report BUILD_DIR/test-results/ENTRY.xml, which counts its cases. Any other entry counts as one. An entry that failed without a
failed case (a crash, a time-out, a sanitizer's report) counts as one failure. Prints "PASSED FAILED"; failures are named
on standard error.
"""
import os
import sys
import xml.etree.ElementTree as xml


def reported_cases(path):
    """(passed, failed names); pytest marks what it skipped by an element, GoogleTest by an attribute."""
    passed, failed = 0, []
    for case in xml.parse(path).iter("testcase"):
        if case.find("failure") is not None or case.find("error") is not None:
            failed.append(f"{case.get('classname')}.{case.get('name')}")
        elif case.find("skipped") is None and case.get("result", "completed") == "completed":
            passed += 1
    return passed, failed


def main():
    results = os.path.join(sys.argv[1], "test-results")
    passed, failed = 0, []
    entries = list(xml.parse(os.path.join(results, "ctest.xml")).iter("testcase"))
    for entry in entries:
        name, good = entry.get("name"), entry.get("status") == "run"
        if entry.get("status") == "disabled":
            continue
        report = os.path.join(results, name + ".xml")
        cases, names = reported_cases(report) if os.path.exists(report) else (int(good), [])
        passed += cases
        failed += [f"{name}: {case}" for case in names]
        if not good and not names:
            failed.append(f"{name}: {entry.get('status')}, see the log")
    for failure in failed:
        print(f"FAILED {failure}", file=sys.stderr)
    print(passed, len(failed))


main()
