#ifndef PATIENCE_H
#define PATIENCE_H

// How long a test waits for what has to come, in ms. What comes is not waited for any longer than
// it takes, so this bounds only a failure: long enough for a sanitized program on a busy machine,
// and short enough for CTest's limit: a wait that fails is looked at again for up to twice as long.
constexpr int patience = 120000;

#endif
