"""Python values as the kit's typed parameters, and back.

Each Python type maps to the C interface's typed setter that keeps the kit's rules exact:
`bool` is a Boolean (tested before `int`, which `bool` is a kind of), `int` an integer, `str` a
string, `datetime` a date, `float` a double (which events and custom parameters drop: the
service has no field for fractions). `None`, lists, tuples and dicts are dropped, as the kit
drops null, arrays and maps; an integer beyond 64 bits goes as a double and is dropped too.
"""

from __future__ import annotations

import datetime
import math
import numbers
from typing import Any, Dict, Mapping, Optional

from ._native import check, lib, text

INT64_MIN = -(2**63)
INT64_MAX = 2**63 - 1

# orvanta_value_kind
_STRING, _INTEGER, _DOUBLE, _BOOLEAN, _DATE = 1, 2, 3, 4, 5

#: What a parameter may be.
ParameterValue = Any


class Parameters:
    """An orvanta_parameters handle built from a mapping; freed when the `with` block ends."""

    def __init__(self, values: Optional[Mapping[str, ParameterValue]]) -> None:
        self.handle: Optional[int] = None
        self._values = values

    def __enter__(self) -> Optional[int]:
        if self._values is None:
            return None
        if not isinstance(self._values, Mapping):
            raise TypeError(f"parameters must be a mapping, not {type(self._values).__name__}")
        library = lib()
        self.handle = library.orvanta_parameters_new()
        if not self.handle:
            raise MemoryError("orvanta_parameters_new")
        try:
            for key, value in self._values.items():
                _set(library, self.handle, key, value)
        except BaseException:
            self.__exit__()
            raise
        return self.handle

    def __exit__(self, *exception: object) -> None:
        if self.handle:
            lib().orvanta_parameters_free(self.handle)
            self.handle = None


def _set(library: Any, handle: int, key: Any, value: ParameterValue) -> None:
    name = text(key, "a parameter's key")
    if isinstance(value, bool):
        check(library.orvanta_parameters_set_boolean(handle, name, value))
    elif isinstance(value, numbers.Integral):
        number = int(value)
        if INT64_MIN <= number <= INT64_MAX:
            check(library.orvanta_parameters_set_integer(handle, name, number))
        else:
            _set_double(library, handle, name, number)
    elif isinstance(value, str):
        string = text(value, f"parameter {key!r}")
        check(library.orvanta_parameters_set_string(handle, name, string))
    elif isinstance(value, datetime.datetime):
        check(library.orvanta_parameters_set_date(handle, name, value.timestamp()))
    elif isinstance(value, numbers.Real):
        _set_double(library, handle, name, value)
    elif value is None or isinstance(value, (list, tuple, dict)):
        pass  # the kit keeps no null, array or map
    else:
        raise TypeError(
            f"parameter {key!r}: a {type(value).__name__} is none of str, int, bool, float, "
            "datetime"
        )


def _set_double(library: Any, handle: int, name: bytes, value: Any) -> None:
    try:
        number = float(value)
    except OverflowError:
        return  # beyond a double: dropped, as any double would be
    if math.isfinite(number):
        check(library.orvanta_parameters_set_double(handle, name, number))


def read(handle: int) -> Dict[str, Any]:
    """The entries of an orvanta_parameters handle as a dict (dates as aware UTC datetimes)."""
    library = lib()
    values: Dict[str, Any] = {}
    for index in range(library.orvanta_parameters_count(handle)):
        key = library.orvanta_parameters_key(handle, index).decode("utf-8", "replace")
        kind = library.orvanta_parameters_kind(handle, index)
        if kind == _STRING:
            string = library.orvanta_parameters_string(handle, index)
            values[key] = string.decode("utf-8", "replace")
        elif kind == _INTEGER:
            values[key] = library.orvanta_parameters_integer(handle, index)
        elif kind == _DOUBLE:
            values[key] = library.orvanta_parameters_double(handle, index)
        elif kind == _BOOLEAN:
            values[key] = library.orvanta_parameters_boolean(handle, index)
        elif kind == _DATE:
            seconds = library.orvanta_parameters_date(handle, index)
            values[key] = datetime.datetime.fromtimestamp(seconds, tz=datetime.timezone.utc)
    return values
