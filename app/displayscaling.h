// How the windows follow the display's dots per inch.
#ifndef DISPLAYSCALING_H
#define DISPLAYSCALING_H

// Lets windows, letters and pictures grow together. Called before the application object is made.
void scaleWithTheDisplay();

#endif
