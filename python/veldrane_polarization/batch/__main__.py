"""python -m veldrane_polarization.batch"""

from __future__ import annotations

import logging
import sys
import warnings

from .command import main

if __name__ == "__main__":
    # dask logs what this program reports in lines of its own, some of it when Python ends.
    logging.disable(logging.CRITICAL)
    # Libraries warn of what no user can change.
    warnings.simplefilter("ignore")
    sys.exit(main())
