// fxDebug: made by start-up for debugging options. There are none.
#ifndef FXDS_DEBUG_H
#define FXDS_DEBUG_H

#include "fxds/Config.h"

class fxStr;

/// Has no options: both operations do nothing and nothing is kept.
class FX_API fxDebug {
public:
    explicit fxDebug(unsigned char on);  ///< Ignores `on`.
    void parseOption(fxStr& option);     ///< Leaves the option alone.
};

/// Made by start-up unless the application has made its own; never freed.
extern FX_API fxDebug* fx_theDebugger;

#endif
