// Applications: the main loop runs while one is registered.
#ifndef FXDS_APPLICATION_H
#define FXDS_APPLICATION_H

#include "fxds/Obj.h"

/// A part of the program that keeps the main loop running. The constructor
/// registers it with fx_theExecutive; the program then initialises and opens
/// all applications through the executive, and fxExec::loop() returns when the
/// last one has closed.
class FX_API fxApplication : public fxObj {
public:
    /// Registers the application. Makes fx_theExecutive when there is none yet.
    fxApplication();
    fxApplication(const fxApplication&) = delete;
    fxApplication& operator=(const fxApplication&) = delete;
    /// Closes the application if it is open, through this class's own close().
    /// One that is not open stays registered: it is never called again, but
    /// loop() does not end. If it can be destroyed without having been opened,
    /// call fx_theExecutive->remove(this) in the destructor of the deriving
    /// class.
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
