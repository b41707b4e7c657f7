import sys

from kolva.cli import main

sys.exit(main())
