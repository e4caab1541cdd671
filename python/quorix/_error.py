"""The one exception of the package."""


class Error(Exception):
    """What the engine, or the look at a file, could not do; the module works on afterwards.

    text        everything that the engine printed up to the fault; the message itself otherwise
    routine     the engine's routine that reported, or None
    line        of the text given to `run`, counted from 1, at which it stopped, or None
    candidates  pairs (amplitude, phase) that a map could be made of, where labels were the fault
    """

    def __init__(self, message, text=None, routine=None, line=None, candidates=()):
        super().__init__(message)
        self.text = message if text is None else text
        self.routine = routine
        self.line = line
        self.candidates = list(candidates)


class MissingFile(Error, FileNotFoundError):
    """There is no such file."""
