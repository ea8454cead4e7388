// Misuses of objects and channels; run.sh tells how the rows are read.

class Gauge : public fxObj {
public:
#ifdef FractionSentAsInt
    // deleted
    void show() { level.send(0.5); }
#else
    void show() { level.send(5); }
#endif

private:
    fxOutput<int> level{addOutput<int>("level")};
};
