#include "pairing/PairingLog.h"

Q_LOGGING_CATEGORY(lcPairing, "varnex.pairing", QtInfoMsg)
