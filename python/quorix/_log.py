"""What the engine says, for the logger "quorix": reports as INFO, warnings as WARNING."""
import logging

logger = logging.getLogger('quorix')
logger.addHandler(logging.NullHandler())  # nothing is printed unless the user says where


def heard_from():
    """The lowest level that anybody hears: reports need not be put together for nobody."""
    if logger.isEnabledFor(logging.WARNING):
        place = logger
        while place:
            if place.filters or any(type(handler) is not logging.NullHandler for handler in place.handlers):
                return logging.INFO if logger.isEnabledFor(logging.INFO) else logging.WARNING
            place = place.parent if place.propagate else None
    return logging.CRITICAL


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
