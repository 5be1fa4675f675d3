"""Chromium, without a screen."""

import os
import subprocess
import tempfile

_CHROMIUM = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--disable-sync", "--hide-scrollbars", "--virtual-time-budget=10000"]


def browse(address, *options):
    """What Chromium prints of a page with these options. All that it keeps is gone afterwards."""
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as home:
        return subprocess.run([*_CHROMIUM, f"--user-data-dir={home}", *options, address],
                              env={**os.environ, "HOME": home}, check=True, timeout=120,
                              capture_output=True, text=True).stdout
