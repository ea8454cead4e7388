// What is wrong with saved objects, as a value.
#ifndef FXDS_STREAMFAULT_H
#define FXDS_STREAMFAULT_H

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>

#include "fxds/Config.h"

/// Why something could not be loaded or saved, and where in its bytes: for the
/// user as a sentence, for the program as a kind, for developers in detail.
struct FX_API fxStreamFault {
    /// What is wrong, for the program to act on; text() puts it into words.
    enum Kind {
        none,         ///< Nothing.
        systemError,  ///< The system refused the file: `error`.
        ended,        ///< The bytes end too early: a file that was cut off.
        foreign,      ///< These are no saved objects, or not what the program asked for.
        damaged,      ///< The bytes contradict themselves.
        unknownType,  ///< An object of a class that this program does not have.
        newer,        ///< Saved by a newer version of the program: `edition`.
        older,        ///< Saved by a version of the program too old to be read: `edition`.
        refused,      ///< A class does not accept what was saved of its object.
        unwritable    ///< Something that was to be saved cannot be.
    };

    explicit operator bool() const { return kind != none; }  ///< Whether anything is wrong.
    /// Whether there is no file at the path, as before a program has saved anything.
    bool isMissing() const { return kind == systemError && error == ENOENT; }

    /// A sentence without a full stop for the user of the program, as in
    /// "settings.fx is from a newer version of this program: class Album,
    /// edition 3". Empty when nothing is wrong.
    std::string text() const;

    /// Where it is, for developers: "offset 322, object, class Album",
    /// and the edition of what is newer or older.
    std::string place() const;

    /// What the stated operations do about it: they say place() and the reason on
    /// standard error, and end the program with the message.
    [[noreturn]] void end(const char* message) const;

    /// What a stream says, as text for a terminal: shortened, and without anything
    /// but printable ASCII.
    static std::string printable(std::string_view bytes);

    /// One of kind foreign, in the header.
    static fxStreamFault inHeader();

    Kind kind = none;         ///< What is wrong.
    std::string path;         ///< Of the file; empty for bytes that are in none.
    size_t offset = 0;        ///< Of the record, in bytes from the first one of the header.
    const char* record = "";  ///< What docs/stream-format.md calls a record of its tag; "header".
    std::string className;    ///< Of the object that was transcribed, as registered; or empty.
    long edition = 0;         ///< Of what is newer or older.
    int error = 0;            ///< Of what the system refused: an errno.
    std::string reason;       ///< The message of the stated operations, or what a class said.
};

#endif
