// What the main loop serves: it runs while an application is registered.
#ifndef FXDS_APPLICATION_H
#define FXDS_APPLICATION_H

#include "fxds/Obj.h"

/// A part of the program that has a life of its own. It registers itself with
/// fx_theExecutive when it is made; the program then initialises and opens all
/// of them through the executive, and fxExec::loop() runs until the last one
/// has closed.
class FX_API fxApplication : public fxObj {
public:
    /// Registers the application. Makes fx_theExecutive when there is none yet.
    fxApplication();
    fxApplication(const fxApplication&) = delete;
    fxApplication& operator=(const fxApplication&) = delete;
    /// Closes the application if it is open, through this class's own close().
    /// One that is not open stays counted by the executive, whose loop() then
    /// never ends, though it is never called again: call
    /// fx_theExecutive->remove(this) in the deriving class's destructor when it
    /// can be destroyed without having been opened.
    ~fxApplication() override;

    const char* className() const override = 0;  ///< The name of the deriving class.

    /// Prepares the application: the program passes its arguments through
    /// fxExec::initialize() before it opens its applications.
    virtual void initialize(int argc, char** argv) = 0;
    /// Marks the application as open. An override calls this one.
    virtual void open();
    /// Unregisters the application and marks it as closed. An override calls
    /// this one, or loop() does not end.
    virtual void close();

    unsigned char isOpen;  ///< Set by open(), cleared by close().
};

#endif
