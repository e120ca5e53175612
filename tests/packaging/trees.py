"""Trees of files, as the packaging tests compare them."""

import pathlib


def files_below(folder):
    """The paths of all files and links below a folder, relative to it, sorted."""
    return sorted(str(path.relative_to(folder)) for path in pathlib.Path(folder).rglob("*")
                  if path.is_symlink() or not path.is_dir())
