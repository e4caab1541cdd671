"""What PyMOL makes of maps, as JSON on the line that begins with RESULT. Run inside PyMOL:
pymol -cq pymol_reader.py -- MAP ..."""
import json
import sys

from pymol import cmd

cmd.set('normalize_ccp4_maps', 0)
found = []
for path in sys.argv[1:]:
    cmd.load(path, 'map')
    values = cmd.get_volume_field('map')
    found.append({'extent': cmd.get_extent('map'), 'symmetry': cmd.get_symmetry('map'),
                  'values': [float(x) for x in values.ravel()[::997]], 'shape': values.shape})
    cmd.delete('map')
print('RESULT' + json.dumps(found))
