// Scales the windows with the display's dots per inch.
#ifndef DISPLAYSCALING_H
#define DISPLAYSCALING_H

// Scales windows, text and pictures together. Call it before the application object is created.
void scaleWithTheDisplay();

#endif
