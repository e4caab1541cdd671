"""The installed Python module makes a map with the data that it finds itself. Usage: use_module.py MTZ"""
import sys

import quorix as qx

m = qx.read(sys.argv[1]).map()
assert m.array.shape == (90, 72, 48), m
print(m, qx.__file__)
