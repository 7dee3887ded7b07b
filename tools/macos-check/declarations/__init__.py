"""Checks declarations of the system's API against two descriptions published by others."""
