// A menu bar inside the window without the padding that its style gives it.
#ifndef COMPACTMENUBAR_H
#define COMPACTMENUBAR_H

class QMenuBar;

// Makes the bar no higher than this many pixels, or than its letters when they need more. In
// everything else it looks and behaves as the style does that the application has at the call.
void makeCompact(QMenuBar *menuBar, int height);

#endif
