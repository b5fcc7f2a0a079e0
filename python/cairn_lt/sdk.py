"""Which SDK recipes use."""

import contextlib
from typing import Iterator, TypeVar

from cairn_lt._cairn_lt import Sdk, install

AnySdk = TypeVar("AnySdk", bound=Sdk)


@contextlib.contextmanager
def installed(sdk: AnySdk) -> Iterator[AnySdk]:
    """Makes `sdk` the one that recipes use within the `with`, and then brings back the one before."""
    before = install(sdk)
    try:
        yield sdk
    finally:
        install(before)
