#!/usr/bin/env python3
"""Prints the Chebyshev coefficients of src/stats/bessel.cpp: exp(-x) I0(x) and exp(-x) I1(x) / x on
[0, 8] (variable x / 4 - 1), sqrt(x) exp(-x) I0(x) and sqrt(x) exp(-x) I1(x) on [8, inf) (variable
16 / x - 1), cut at 1e-14. Needs python3-numpy and python3-scipy."""
import numpy as np
from numpy.polynomial import chebyshev
from scipy.special import i0e, i1e


def series(name, function, degree):
    coefficients = chebyshev.chebinterpolate(function, degree)
    while abs(coefficients[-1]) < 1e-14:
        coefficients = coefficients[:-1]
    rows = ',\n    '.join(f'{value:.17e}' for value in coefficients)
    print(f'constexpr double {name}[] = {{\n    {rows}}};\n')


def near(function):
    return lambda t: function(4.0 * (t + 1.0))


def far(function):
    def value(t):
        x = 16.0 / np.maximum(t + 1.0, 1e-9)
        return np.sqrt(x) * function(x)
    return value


def i1_over_x(x):
    return np.where(x > 1e-8, i1e(np.maximum(x, 1e-8)) / np.maximum(x, 1e-8), 0.5)


series('i0_near', near(i0e), 34)
series('i1_near', near(i1_over_x), 34)
series('i0_far', far(i0e), 30)
series('i1_far', far(i1e), 30)
