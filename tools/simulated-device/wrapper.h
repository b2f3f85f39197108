#ifndef WRAPPER_H
#define WRAPPER_H

// Returns when umockdev is preloaded; otherwise this process starts anew under umockdev-wrapper.
void requirePreload(char **arguments);

#endif
