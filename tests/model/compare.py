"""Compares the model with a peer. Called by tests/model/run.

No more than this: its processes import it before they watch the model, which must not come with it.
"""

import sys

if __name__ == "__main__":
    import comparison

    sys.exit(comparison.main())
