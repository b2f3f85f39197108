#ifndef PATIENCE_H
#define PATIENCE_H

// How long a test waits for a condition, in ms. A wait ends as soon as the condition is met, so
// this only matters for failures. It is long enough for a sanitized program on a busy machine, and
// short enough for CTest's limit, although QtTest waits up to twice as long again after a failure.
constexpr int patience = 120000;

#endif
