"""Client and records of the Telvane bus, for test benches and for the analysis of welds.

    with telvane.Bus("/run/telvane/bus") as bus:
        for sample in bus.listen(telvane.WeldTraceData, timeout=5):
            print(sample.data.amps)

`telvane.aio.Bus` is the same for asyncio, `telvane.read` reads recordings, `telvane.archive.open` the archive of
welds.
"""
from . import aio, archive, codes, data, errors, events, records
from ._record import Record, record
from ._version import __version__
from .bus import Bus, Listener, Subscription
from .codes import *  # noqa: F401,F403
from .data import read
from .errors import *  # noqa: F401,F403
from .events import *  # noqa: F401,F403
from .records import *  # noqa: F401,F403

__all__ = ["Bus", "Listener", "Record", "Subscription", "__version__", "aio", "archive", "data", "read", "record"]
__all__ += codes.__all__ + errors.__all__ + events.__all__ + records.__all__
