#include "fxds/Globals.h"

#include <climits>

#include "fxds/BinaryReader.h"
#include "fxds/ChannelValue.h"
#include "fxds/Converter.h"
#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Fatal.h"
#include "fxds/Property.h"
#include "fxds/Sequencer.h"
#include "fxds/Transcriber.h"

// Ordered globals register themselves from static initialisers, in the order in which those
// happen to run, so the orderings are plain pointers that start null. The services
// themselves are made only when the application requests them.
//
// Invariants:
// (1) Both orderings are null, or both exist, and then until the process ends.
// (2) An ordering lists each registered service as often as it was registered, and borrows it.
// (3) `sorted` is set only if nothing was registered since the last pass of sort().
// (4) Start-up and clean-up are marked as done before their first function runs. A service
//     that calls them from within does nothing.

fxGlobalOrder* fx_toolkitGlobalOrder = nullptr;
fxGlobalOrder* fx_applicationGlobalOrder = nullptr;

fxSequencer* fx_nextDataType = nullptr;
fxSequencer* fx_nextEventType = nullptr;

fxOrderedGlobal::fxOrderedGlobal(Function* init_, fxOrderedGlobal** deps_, int ordering)
    : fxOrderedGlobal(init_, nullptr, deps_, ordering) {}

fxOrderedGlobal::fxOrderedGlobal(Function* init_, Function* cleanup_, fxOrderedGlobal** deps_,
                                 int ordering)
    : init(init_), cleanup(cleanup_), deps(deps_) {
    fxGlobalOrder::add(this, ordering);
}

bool fxOrderedGlobal::dependsOn(fxOrderedGlobal const& other) const {
    if (deps == nullptr) return false;
    for (fxOrderedGlobal** dep = deps; *dep != nullptr; ++dep) {
        if (*dep == &other) return true;
    }
    return false;
}

fxGlobalOrder::fxGlobalOrder() : sorted(0) { globals.setMaxLength(10); }

fxGlobalOrder::~fxGlobalOrder() = default;

void fxGlobalOrder::add(fxOrderedGlobal* global, int ordering) {
    createOrderings();
    (ordering == 1 ? fx_toolkitGlobalOrder : fx_applicationGlobalOrder)->add(global);
}

void fxGlobalOrder::add(fxOrderedGlobal* global) {
    globals.append(global);
    sorted = 0;
}

void fxGlobalOrder::createOrderings() {
    if (fx_toolkitGlobalOrder == nullptr) fx_toolkitGlobalOrder = new fxGlobalOrder;
    if (fx_applicationGlobalOrder == nullptr) fx_applicationGlobalOrder = new fxGlobalOrder;
}

namespace {

fxOrderedGlobal& globalAt(const fxGlobalOrder& order, unsigned int index) {
    return *static_cast<fxOrderedGlobal*>(order.globals[index]);
}

}  // namespace

void fxGlobalOrder::sort() {
    const unsigned int count = globals.length();
    for (unsigned int i = 0; i + 1 < count; ++i) {
        for (unsigned int j = i + 1; j < count; ++j) {
            if (globalAt(*this, i).dependsOn(globalAt(*this, j))) globals.swap(i, j);
        }
    }
    sorted = 1;
}

void fxGlobalOrder::create() {
    if (sorted == 0) sort();
    // An init may register more, which then run in this pass.
    for (unsigned int i = 0; i < globals.length(); ++i) {
        if (globalAt(*this, i).init != nullptr) globalAt(*this, i).init();
    }
}

void fxGlobalOrder::destroy() {
    for (unsigned int i = globals.length(); i > 0; --i) {
        if (globalAt(*this, i - 1).cleanup != nullptr) globalAt(*this, i - 1).cleanup();
    }
}

void fxInitGlobalOrderings() {
    static bool firstTime = true;
    if (!firstTime) return;
    firstTime = false;  // before anything runs: an init may call this again
    if (fx_toolkitGlobalOrder != nullptr) fx_toolkitGlobalOrder->create();
    if (fx_applicationGlobalOrder != nullptr) fx_applicationGlobalOrder->create();
}

void fxInitializeToolkit() { fxInitGlobalOrderings(); }

void fxCleanupGlobalOrderings() {
    static bool firstTime = true;
    if (!firstTime) return;
    firstTime = false;
    if (fx_applicationGlobalOrder != nullptr) fx_applicationGlobalOrder->destroy();
    if (fx_toolkitGlobalOrder != nullptr) fx_toolkitGlobalOrder->destroy();
}

namespace {

void drawDataTypes() {
    if (fx_nextDataType != nullptr) return;
    fx_nextDataType = new fxSequencer;
#define FX_DRAW(number, ...) number = static_cast<unsigned short>((*fx_nextDataType)());
    FX_DATA_TYPES(FX_DRAW, FX_DRAW)
#undef FX_DRAW
}

void drawEventTypes() {
    if (fx_nextEventType != nullptr) return;
    fx_nextEventType = new fxSequencer;
    for (unsigned long* type : {&fxET_Unknown, &fxET_MessageEvent}) *type = (*fx_nextEventType)();
}

}  // namespace

unsigned short fxDrawDataType(const char* name) {
    drawDataTypes();
    const unsigned int drawn = (*fx_nextDataType)();
    if (drawn > USHRT_MAX) fxFatal("no data type number is left for %s", name);
    const auto number = static_cast<unsigned short>(drawn);
    fxNameDataType(number, name);
    return number;
}

void fxOG_Init_cons() {
    fxProperty::constructPropertyNames();
    drawDataTypes();
    fxConverter::createStandardConverters();
    if (fx_theExecutive == nullptr) fx_theExecutive = new fxExec;
    if (fx_theEventHandler == nullptr) fx_theEventHandler = new fxEventHandler;
    drawEventTypes();
    if (fx_theDebugger == nullptr) fx_theDebugger = new fxDebug(1);
}

void fxOG_Init_dest() {}
