"""A whole access point on one Linux machine, in its own namespaces. See docs/lab.md."""

from .lab import BusError, Lab
from .network import FirewallUnusable
from .space import LabError, Timeout

__all__ = ["BusError", "FirewallUnusable", "Lab", "LabError", "Timeout"]
