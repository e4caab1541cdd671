#!/usr/bin/env python3
"""Turns ctest's JUnit file into the line "N passed, N failed, N skipped"."""
import sys
import xml.etree.ElementTree as ElementTree

suite = ElementTree.parse(sys.argv[1]).getroot()
total, failed, skipped = (int(suite.get(name, '0')) for name in ('tests', 'failures', 'skipped'))
skipped += int(suite.get('disabled', '0'))
print(f'{total - failed - skipped} passed, {failed} failed' + (f', {skipped} skipped' if skipped else ''))
sys.exit(0 if failed == 0 and total > skipped else 1)
