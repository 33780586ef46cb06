#pragma once

// Enter and Return press the focused button as Space does, in the program's windows: a
// keyboard user expects either key to work. Dialogs keep their own rule (Enter presses the
// default button, or the focused one). Installed once for the application; calling it again
// does nothing.
void pressButtonsOnEnter();
