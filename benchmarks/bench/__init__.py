"""Runs the benchmarks, records their results and writes the documents' tables."""
