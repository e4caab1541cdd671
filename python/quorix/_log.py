"""What the engine says, for the logger "quorix": reports as INFO, warnings as WARNING."""
import logging

logger = logging.getLogger('quorix')
logger.addHandler(logging.NullHandler())  # nothing is printed unless the user says where


def hear(warning, text):
    """Takes what was said in one call, a line a record."""
    if warning:
        logger.warning('%s', text)
        return
    if not logger.isEnabledFor(logging.WARNING):
        return
    for line in text.splitlines():
        line = line.strip()
        if line:
            logger.log(logging.WARNING if line.startswith('WARNING') else logging.INFO, '%s', line)
