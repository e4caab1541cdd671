from typing import List, Optional, Sequence, Tuple

import numpy as np
from numpy.typing import ArrayLike, NDArray

version: str

class Unit:
    unknown: Unit
    absolute: Unit
    rms: Unit

class Reflections:
    path: str
    readable: str
    title: str
    spacegroup: str
    operators: List[str]
    history: List[str]
    cell: List[float]
    dmin: float
    dmax: float
    rows: int
    columns: List[Tuple[str, str, int]]
    datasets: List[Tuple[int, str, str, str, float]]
    candidates: List[Tuple[str, str, str]]
    def usual_pair(self, difference: bool) -> Optional[Tuple[str, str, str]]: ...
    def find(self, name: str) -> List[int]: ...
    def indices(self) -> NDArray[np.int32]: ...
    def column(self, place: int) -> NDArray[np.float32]: ...

class Density:
    array: NDArray[np.float64]
    counts: List[int]
    starts: List[int]
    intervals: List[int]
    cell: List[float]
    group: str
    operators: List[str]
    mean: float
    rms: float
    scale: float
    unit: Unit
    kind: str
    whole_cell: bool
    def __init__(self, values: ArrayLike, cell: Sequence[float], group: str, unit: Unit, kind: str) -> None: ...

class MapOptions:
    amplitude: str
    phase: str
    weight: str
    difference: bool
    dmin: Optional[float]
    dmax: Optional[float]
    fraction: float
    spacing: float
    counts: List[int]
    no_scale: bool
    spacegroup: str
    cell: List[float]

def read(path: str, name: str) -> Reflections: ...
def make_map(reflections: Reflections, options: MapOptions) -> Density: ...
def around(map: Density, model: str, selection: str, cushion: float) -> Density: ...
def at_points(map: Density, points: ArrayLike, order: int) -> NDArray[np.float64]: ...
def positions(model: str, selection: str) -> NDArray[np.float64]: ...
def write(map: Density, path: str, force: bool) -> bool: ...
def read_map(path: str) -> Density: ...
def find_peaks(
    map: Density, level: float, model: str, selection: str
) -> Tuple[NDArray[np.float64], NDArray[np.float64], List[str], NDArray[np.float64]]: ...
def command(words: Sequence[str]) -> str: ...
def set_threads(count: int) -> None: ...
def find_data_sets(inputs: Sequence[str]) -> List[Tuple[str, str]]: ...
def run(text: str, force: bool) -> str: ...
