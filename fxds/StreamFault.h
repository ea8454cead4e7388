// Faults of saved objects, as values.
#ifndef FXDS_STREAMFAULT_H
#define FXDS_STREAMFAULT_H

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>

#include "fxds/Config.h"

/// The reason why something could not be loaded or saved, and its place in the bytes: a
/// sentence for the user, a kind for the program, details for developers.
struct FX_API fxStreamFault {
    /// The kind of fault, for the program to act on; text() puts it into words.
    enum Kind {
        none,         ///< Nothing.
        systemError,  ///< The system refused the file: `error`.
        ended,        ///< The bytes end too early: a file that was cut off.
        foreign,      ///< No saved objects, or not those that the program asked for.
        damaged,      ///< The bytes contradict themselves.
        unknownType,  ///< An object of a class that this program does not have.
        newer,        ///< Saved by a newer version of the program: `edition`.
        older,        ///< Saved by a version of the program too old to be read: `edition`.
        refused,      ///< A class does not accept the saved data of its object.
        unwritable    ///< An object cannot be saved.
    };

    explicit operator bool() const { return kind != none; }  ///< Whether anything is wrong.
    /// Whether there is no file at the path, as before a program has saved anything.
    bool isMissing() const { return kind == systemError && error == ENOENT; }

    /// A sentence without a full stop for the user of the program, as in
    /// "settings.fx is from a newer version of this program: class Album,
    /// edition 3". Empty when nothing is wrong.
    std::string text() const;

    /// The place of the fault, for developers: "offset 322, object, class Album", and the
    /// edition of a newer or older object.
    std::string place() const;

    /// Acts as the operations without a fault do: writes place() and the reason to standard
    /// error, and ends the program with the message.
    [[noreturn]] void end(const char* message) const;

    /// Bytes of a stream as text for a terminal: shortened, and only printable ASCII.
    static std::string printable(std::string_view bytes);

    /// A fault of kind foreign, in the header.
    static fxStreamFault inHeader();

    Kind kind = none;         ///< The kind of fault.
    std::string path;         ///< Of the file; empty for bytes that are in none.
    size_t offset = 0;        ///< Of the record, in bytes from the first one of the header.
    const char* record = "";  ///< What docs/stream-format.md calls a record of its tag; "header".
    std::string className;    ///< Of the object that was transcribed, as registered; or empty.
    long edition = 0;         ///< Of a newer or older object.
    int error = 0;            ///< Of a system error: an errno.
    std::string reason;       ///< The message of end(), or the reason that a class gave.
};

#endif
