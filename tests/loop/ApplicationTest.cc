// Applications by example; TortureTest does what they may do meanwhile.
#include "fxds/Application.h"

#include <gtest/gtest.h>

#include "fxds/Exec.h"
#include "fxds/Wakeup.h"

TEST(Application, LoopRunsUntilTheLastOneHasClosed) {
    class App : public fxApplication {
        const char* className() const override { return "App"; }
        void initialize(int, char**) override {}
    } app;
    class Closer : public fxWakeup {
    public:
        void handleRead() override {
            if (++turns == 3) fx_theExecutive->close();
        }
        int turns = 0;
    } closer;
    closer.wake();
    fx_theExecutive->open();
    fx_theExecutive->loop();
    EXPECT_EQ(closer.turns, 3);
    fx_theExecutive->loop();  // turns once without any
    EXPECT_EQ(closer.turns, 4);
    app.close();  // a second time
    EXPECT_FALSE(app.isOpen);
}
