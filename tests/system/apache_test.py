#!/usr/bin/env python3
"""The cases of web_test.py once more, behind Apache httpd."""

import shutil
import sys

from harness import ApacheServer
from web_test import suite

if __name__ == "__main__":
    suite.name = "Apache"
    if not shutil.which(ApacheServer.command()[0]):
        print("SKIP Apache: Apache httpd is not installed")
        suite.cases.clear()
    sys.exit(suite.main(ApacheServer))
