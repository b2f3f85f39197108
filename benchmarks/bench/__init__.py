"""What benchmarks/measure measures with, and what becomes of the results."""
