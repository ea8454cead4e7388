// Values of a program's own types in channels.
#ifndef FXDS_CHANNELVALUE_H
#define FXDS_CHANNELVALUE_H

#include "fxds/Data.h"
#include "fxds/Obj.h"

/// FX_CHANNEL_VALUE(Type, name) is written once behind the class, in the global namespace,
/// in the header that declares it. From then on outputs, inputs, receivers and converters
/// may have this type:
///
///     struct Point { int x, y; };
///     FX_CHANNEL_VALUE(Point, "Point")
///
///     fxOutput<Point> moved = addOutput<Point>("moved");
///     addInput("place", [this](const Point& place) { ... });
///
/// The type is copied into the event queue and from there; receivers get a reference to
/// const that is good for the call. Its data type number is drawn when it is first used,
/// and traces show the type as `name`.
// NOLINTBEGIN(bugprone-macro-parentheses): the parameter is a type
#define FX_CHANNEL_VALUE(Type, name)                                   \
    template <>                                                        \
    struct fxChannelType<Type> {                                       \
        static constexpr bool isOwnKind = true;                        \
        typedef Type Value;                                            \
        typedef const Type& Passed;                                    \
        typedef fxValueBox<Type> Box;                                  \
        static const char* typeName() { return name; }                 \
        static unsigned short type() {                                 \
            static const unsigned short number = fxDrawDataType(name); \
            return number;                                             \
        }                                                              \
    };
// NOLINTEND(bugprone-macro-parentheses)

/// Draws a new data type number and names it in print. The library's own numbers are drawn
/// before it, so a program's first is 12. Fatal when all 65,536 are drawn.
FX_API unsigned short fxDrawDataType(const char* name);

/// A boxed value of a program's own type; see FX_CHANNEL_VALUE.
template <class T>
class fxValueBox final : public fxValueData<T, const T&> {
public:
    /// It has no holder yet.
    explicit fxValueBox(const T& value_)
        : fxValueData<T, const T&>(fxChannelType<T>::type(), value_) {}
    const char* dataName() const override { return fxChannelType<T>::typeName(); }
};

#endif
