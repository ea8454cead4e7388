// Ordered start-up and shutdown.
#ifndef FXDS_GLOBALS_H
#define FXDS_GLOBALS_H

#include "fxds/Config.h"
#include "fxds/DataTypes.h"
#include "fxds/Debug.h"
#include "fxds/Library.h"
#include "fxds/VoidPtrArray.h"

class fxSequencer;

/// A service that must be made in order: its functions for start-up and
/// cleanup, and the services that it depends on. Give it static storage; its
/// constructor only registers it. fxInitializeToolkit() runs `init`.
class FX_API fxOrderedGlobal {
public:
    typedef void Function();  ///< Makes or cleans up a service.

    ///@{
    /// `deps` is a null-terminated list (kept, borrowed) of what this one
    /// depends on directly, or null. `ordering` is 1 for the library's own
    /// services, anything else for the application's. Null functions are
    /// skipped.
    fxOrderedGlobal(Function* init, fxOrderedGlobal** deps, int ordering);
    fxOrderedGlobal(Function* init, Function* cleanup, fxOrderedGlobal** deps, int ordering);
    ///@}
    fxOrderedGlobal(const fxOrderedGlobal&) = delete;  // the ordering has the original's address
    fxOrderedGlobal& operator=(const fxOrderedGlobal&) = delete;

    /// Whether `other` is in the list of direct dependences.
    bool dependsOn(fxOrderedGlobal const& other) const;

    Function* init;          ///< May be null.
    Function* cleanup;       ///< May be null.
    fxOrderedGlobal** deps;  ///< Null-terminated, borrowed; or null.
};

/// Ordered globals, in the order in which they will be made.
class FX_API fxGlobalOrder {
public:
    fxGlobalOrder();
    fxGlobalOrder(const fxGlobalOrder&) = delete;
    fxGlobalOrder& operator=(const fxGlobalOrder&) = delete;
    ~fxGlobalOrder();

    /// Registers a service (borrowed) with the library's ordering when `ordering`
    /// is 1, else with the application's. Both are made first if need be.
    static void add(fxOrderedGlobal* global, int ordering);
    /// Registers a service with this ordering. One that is registered while
    /// create() runs is made in that pass; one that is registered later is
    /// never made.
    void add(fxOrderedGlobal* global);
    /// Makes those of the two orderings that do not exist yet.
    static void createOrderings();

    /// Moves services behind what they depend on, in one selecting pass over
    /// direct dependences. Cycles and chains that would need a second pass stay
    /// as the pass leaves them; no error is reported.
    void sort();
    /// Sorts if need be and runs every `init`, first to last.
    void create();
    /// Runs every `cleanup`, last to first.
    void destroy();

    unsigned char sorted;    ///< Whether `globals` is in the order of making.
    fxVoidPtrArray globals;  ///< of fxOrderedGlobal*, borrowed
};

///@{
/// Null until the first registration.
extern FX_API fxGlobalOrder* fx_toolkitGlobalOrder;
extern FX_API fxGlobalOrder* fx_applicationGlobalOrder;
///@}

// The library's own services. An application's ordered globals need not name
// them: the library's ordering runs first.
extern FX_API fxOrderedGlobal fxOG_Init;         ///< All but the transcribers.
extern FX_API fxOrderedGlobal fxOG_Transcriber;  ///< The readers of saved files.

/// The function of fxOG_Init: makes the property names, the data type numbers,
/// the converters, the executive, the event handler, the event type numbers and
/// the debugger, except those that the application has made already.
FX_API void fxOG_Init_cons();
/// Does nothing: the services stay until the process ends.
FX_API void fxOG_Init_dest();

/// Makes the library's services and then the application's. Only the first
/// call does anything.
FX_API void fxInitGlobalOrderings();

/// Call once before using the library. The same as fxInitGlobalOrderings().
FX_API void fxInitializeToolkit();

/// Cleans up the application's services and then the library's, each in
/// reverse order. Only the first call does anything.
FX_API void fxCleanupGlobalOrderings();

/// Start-up and clean-up as a local variable: the first of main(), which makes the services
/// before all others and cleans up after them.
///
///     int main() {
///         const fxToolkit toolkit;
class fxToolkit {
public:
    fxToolkit() { fxInitializeToolkit(); }
    fxToolkit(const fxToolkit&) = delete;
    fxToolkit& operator=(const fxToolkit&) = delete;
    ~fxToolkit() { fxCleanupGlobalOrderings(); }
};

// An application may make its own of these before start-up, which then keeps
// them. They are never freed.
extern FX_API fxSequencer* fx_nextDataType;   ///< Hands out data type numbers.
extern FX_API fxSequencer* fx_nextEventType;  ///< Hands out event type numbers.

#endif
