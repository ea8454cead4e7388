// The idioms of ours.cc with Qt Core.
#include <QCoreApplication>
#include <QDataStream>
#include <QDynamicPropertyChangeEvent>
#include <QEventLoop>
#include <QFile>
#include <QHash>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSharedPointer>
#include <QStringList>
#include <QTimer>
#include <QVariant>
#include <chrono>
#include <cstdio>
#include <thread>

using namespace std::chrono_literals;

// Connections

class Slider : public QObject {
    Q_OBJECT

public:
    void setLevel(int level) { emit moved(level); }

signals:
    void moved(int level);
};

static void connections() {
    const auto show = [](int level) { std::printf("connections: %d\n", level); };
    Slider slider;
    const QMetaObject::Connection shown = QObject::connect(&slider, &Slider::moved, show);
    slider.setLevel(1);
    QObject::disconnect(shown);
    slider.setLevel(2);
    {
        QObject context;
        QObject::connect(&slider, &Slider::moved, &context, show);
        slider.setLevel(3);
    }
    slider.setLevel(4);
}

// Queued calls

static void queued() {
    Slider slider;
    QObject context;
    QObject::connect(
        &slider, &Slider::moved, &context, [](int level) { std::printf("queued: %d\n", level); },
        Qt::QueuedConnection);
    slider.setLevel(5);
    std::printf("queued: sent\n");
    QCoreApplication::processEvents();
}

// Timers

static void timers() {
    int ticks = 0;
    QEventLoop loop;
    QTimer blinking;
    blinking.callOnTimeout([&] {
        if (++ticks < 3) return;
        blinking.stop();
        QTimer::singleShot(5ms, &loop, &QEventLoop::quit);
    });
    blinking.start(2ms);
    loop.exec();
    std::printf("timers: %d ticks\n", ticks);
}

// Threads

static void threads() {
    QEventLoop loop;
    std::thread worker([&loop] {
        QMetaObject::invokeMethod(&loop, [&loop] {
            std::printf("threads: done\n");
            loop.quit();
        });
    });
    loop.exec();
    worker.join();
}

// Texts

static void texts() {
    const QStringList parts = QStringLiteral("b,a,,c").split(',');
    std::printf("texts: %s\n", qPrintable(parts.join("-")));
    bool isNumber = false;
    const int number = QStringLiteral("42").toInt();
    QStringLiteral("4x").toInt(&isNumber);
    std::printf("texts: %d, %s\n", number, isNumber ? "4" : "no number");
}

// Tables

static void tables() {
    QHash<QString, int> ages{{"ada", 36}, {"bob", 41}};
    ages["cyd"] = 5;
    std::printf("tables: %d %d\n", ages.value("ada"), ages.value("eve", -1));
    const int bob = ages.take("bob");
    std::printf("tables: %d, %d left\n", bob, static_cast<int>(ages.size()));
}

// Expressions

static void expressions() {
    const QString line = "a=1 b=22";
    QRegularExpressionMatchIterator all = QRegularExpression("([a-z])=([0-9]+)").globalMatch(line);
    while (all.hasNext()) {
        const QRegularExpressionMatch match = all.next();
        std::printf("expressions: %s %s\n", qPrintable(match.captured(1)),
                    qPrintable(match.captured(2)));
    }
}

// Sharing

struct Page {
    ~Page() { std::printf("sharing: the page ends\n"); }
};

static void sharing() {
    auto first = QSharedPointer<Page>::create();
    auto second = first;
    first.reset();
    std::printf("sharing: one holder left\n");
    second.reset();
}

// Properties

class Lamp : public QObject {
protected:
    bool event(QEvent* event) override {
        if (event->type() == QEvent::DynamicPropertyChange) std::printf("properties: changed\n");
        return QObject::event(event);
    }
};

static void properties() {
    Lamp lamp;
    lamp.setProperty("watts", 60);
    const QVariant volts = lamp.property("volts");
    std::printf("properties: %d %d\n", lamp.property("watts").toInt(),
                volts.isValid() ? volts.toInt() : 230);
}

// Saving

struct Settings {
    QString place = "south";
    int level = 7;
};

static QDataStream& operator<<(QDataStream& out, const Settings& settings) {
    return out << settings.place << settings.level;
}
static QDataStream& operator>>(QDataStream& in, Settings& settings) {
    return in >> settings.place >> settings.level;
}

static void saving() {
    QSaveFile file("peers.saved");
    if (!file.open(QIODevice::WriteOnly)) return;
    QDataStream out(&file);
    out << Settings();
    if (!file.commit()) return;
    QFile saved("peers.saved");
    if (saved.open(QIODevice::ReadOnly)) {
        Settings settings{"", 0};
        QDataStream in(&saved);
        in >> settings;
        if (in.status() == QDataStream::Ok) {
            std::printf("saving: %s %d\n", qPrintable(settings.place), settings.level);
        }
    }
    QFile::remove("peers.saved");
    std::printf("saving: %s\n",
                QFile("peers.saved").open(QIODevice::ReadOnly) ? "a file" : "no file");
}

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    connections();
    queued();
    timers();
    threads();
    texts();
    tables();
    expressions();
    sharing();
    properties();
    saving();
}

#include "qt.moc"
