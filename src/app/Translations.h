#pragma once

class QCoreApplication;

// Installs the English catalogue (and a catalogue for the user's language, when one is
// shipped) so that text ids resolve to readable text.
void installTranslations(QCoreApplication& app);
