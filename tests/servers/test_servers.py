#!/usr/bin/python3
"""Checks that each server behaves as README.md tells, and that none outlives its end."""

import sys

sys.dont_write_bytecode = True

import unittest

MODULES = ["test_nginx", "test_hostile", "test_websocket", "test_others", "test_lifecycle"]

if __name__ == "__main__":
    unittest.main(module=None, argv=[*sys.argv, *MODULES])
