import pytest
from ubus_wire import Broker


@pytest.fixture
def broker(build_dir, tmp_path):
    """A fresh broker."""
    bus = Broker(build_dir / "bin" / "ubusd", tmp_path)
    yield bus
    bus.done()
