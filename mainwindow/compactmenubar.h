// A menu bar inside the window without the padding that its style gives it.
#ifndef COMPACTMENUBAR_H
#define COMPACTMENUBAR_H

class QMenuBar;

// Limits the bar to this many pixels, or to the height of its text if that is more. Otherwise it
// looks and behaves like the application's style at the time of the call.
void makeCompact(QMenuBar *menuBar, int height);

#endif
