// Saving object graphs to files and loading them, with every failure as a value.
#ifndef FXDS_SAVE_H
#define FXDS_SAVE_H

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

#include "fxds/Ref.h"
#include "fxds/StreamFault.h"
#include "fxds/Xdr.h"
#include "fxds/detail/FilePath.h"

// In full:
//
//     if (const fxStreamFault fault = fxSave("settings.fx", &settings)) {
//         showError(fault.text());
//     }
//
//     fxLoaded<Settings> loaded = fxLoad<Settings>("settings.fx");
//     if (!loaded) showError(loaded.fault().text());
//     else use(*loaded);
//
// fxLoadOrMake() makes the object where there is no file yet. A path is text of any
// kind or a std::filesystem::path.
//
// Both need fxInitializeToolkit(). A file holds one graph; bytes behind it are ignored.

/// The root of a loaded graph, or the fault. It holds the root if its class is counted, and
/// deletes it otherwise.
template <class C>
class fxLoaded {
public:
    /// Holds `newRoot`, which may be null, from now on.
    fxLoaded(C* newRoot, fxStreamFault newFault) : root(newRoot), fault_(std::move(newFault)) {
        if constexpr (isCounted) {
            if (root != nullptr) counted()->take();
        }
    }
    ///@{
    /// Moves the root; the other one has none, or that of this one.
    fxLoaded(fxLoaded&& other) noexcept
        : root(std::exchange(other.root, nullptr)), fault_(std::move(other.fault_)) {}
    fxLoaded& operator=(fxLoaded&& other) noexcept {
        std::swap(root, other.root);
        std::swap(fault_, other.fault_);
        return *this;
    }
    ///@}
    ~fxLoaded() {
        if constexpr (isCounted) {
            if (root != nullptr) counted()->release();
        } else {
            delete root;
        }
    }

    explicit operator bool() const { return root != nullptr; }  ///< Whether there is a root.
    const fxStreamFault& fault() const { return fault_; }       ///< The fault, if any.
    C* get() const { return root; }                             ///< View; null without a root.
    C* operator->() const { return root; }                      ///< View.
    C& operator*() const { return *root; }                      ///< Requires: there is a root.

    /// Given: the root as fxReadObject() gives it, without a holder.
    C* release() {
        if constexpr (isCounted) {
            if (root != nullptr) --counted()->refCount;
        }
        return std::exchange(root, nullptr);
    }

private:
    typedef std::remove_const_t<C> Plain;
    static constexpr bool isCounted = std::is_convertible_v<Plain*, fxRCObj*>;

    // The class may have a take() of its own, and holding a constant object changes its count.
    fxRCObj* counted() const { return const_cast<Plain*>(root); }

    C* root;
    fxStreamFault fault_;
};

// Shared by the templates below.
namespace fxDetail {

typedef bool WriteRoot(fxTranscriber& writer, void* root);
FX_API fxStreamFault saveRoot(const std::string& path, WriteRoot* write, void* root);
FX_API fxStreamFault saveRoot(fxStream& stream, WriteRoot* write, void* root);
FX_API void* loadRoot(const std::string& path, fxTypeObj& type, fxStreamFault& fault);
FX_API void* loadRoot(fxStream& stream, fxTypeObj& type, fxStreamFault& fault);

template <class C, class Target>
fxStreamFault save(Target& target, C* root) {
    typedef std::remove_const_t<C> Plain;
    return saveRoot(
        target,
        [](fxTranscriber& writer, void* object) {
            return fxWriteObject(writer, static_cast<Plain*>(object));
        },
        const_cast<Plain*>(root));
}

template <class C, class Source>
fxLoaded<C> load(Source& source) {
    fxStreamFault fault;
    C* const root = static_cast<C*>(loadRoot(source, fxXdrTypeOf<C>::record(), fault));
    return fxLoaded<C>(root, std::move(fault));
}

}  // namespace fxDetail

/// Saves the graph of `root` in the file at `path`. One thread at a time saves or loads. The
/// file has the old content or the whole new one, whatever happens: the bytes go to a new
/// file in the same folder, whose name begins with ".saving-"; it is synced, takes the place
/// of the file, and the folder is synced. At `path` there must be a file that the caller may
/// write to, a symbolic link to one or to nothing, or nothing, in a folder that the caller
/// may read and write. The new file has the permission bits of the old one, and its owner
/// where the system allows it. Other hard links keep the old content. The path is looked up
/// once: neither an xdr() that changes the working folder nor a folder that gets another
/// name meanwhile matters. If something else is at the path by then, it is replaced only if
/// it is a file; a symbolic link is not followed then.
///
/// After a failure, and when an xdr() throws, the new file is removed, and the old one is as it
/// was. Only when the folder cannot be synced is the new one in place already, and may not
/// outlive a loss of power. A limit on the size of files fails like a full disk, with EFBIG:
/// SIGXFSZ is blocked in this thread while bytes go to the system, but not while an xdr() runs.
///
/// The save belongs to the process that calls. However a process that was forked meanwhile
/// ends, it leaves both files alone; if it returns from the xdr(), its copy of the save fails
/// with ECANCELED. Only when this process itself ends in an xdr(), by exit() or a signal, does
/// the new file stay beside the old one.
template <class C>
[[nodiscard]] fxStreamFault fxSave(const fxDetail::FilePath& path, C* root) {
    return fxDetail::save<C>(path, root);
}

/// The same for a root by reference.
template <class C, std::enable_if_t<std::is_base_of_v<fxXDRObj, C>, int> = 0>
[[nodiscard]] fxStreamFault fxSave(const fxDetail::FilePath& path, C& root) {
    return fxDetail::save<C>(path, &root);
}

/// The same for a root that an fxRef holds.
template <class C>
[[nodiscard]] fxStreamFault fxSave(const fxDetail::FilePath& path, const fxRef<C>& root) {
    return fxDetail::save<C>(path, root.get());
}

/// Loads a graph whose root is a C, or derives from it, from the file at `path`.
/// No content of the file ends the program, as long as no xdr() does; a class's
/// exception that derives from std::exception is a fault like any other, and all
/// others pass. A graph that was not loaded whole is destroyed. Only regular files are
/// opened: reading another one might never end.
template <class C>
[[nodiscard]] fxLoaded<C> fxLoad(const fxDetail::FilePath& path) {
    return fxDetail::load<C>(path);
}

/// The same, where there is a file at `path`; where there is none, as before a program
/// has saved anything, an object made of `arguments`. Every other fault stays one.
template <class C, class... Arguments>
[[nodiscard]] fxLoaded<C> fxLoadOrMake(const fxDetail::FilePath& path, Arguments&&... arguments) {
    fxLoaded<C> loaded = fxLoad<C>(path);
    if (!loaded.fault().isMissing()) return loaded;
    return fxLoaded<C>(new C(std::forward<Arguments>(arguments)...), fxStreamFault());
}

///@{
/// The same with a stream, which stays the caller's and goes on behind the graph:
/// one message, with its own header. So messages are independent, and the
/// objects of one may be destroyed before the next is saved or loaded.
///
/// A load waits for the whole message. At the end of the stream, as when the other end of
/// a pipe is closed, the fault is `ended` at offset 0. After any other fault the rest of a
/// message may follow in the stream, or be missing in it, and the two ends do not agree
/// any more: close it. An object that may be unwritable is saved in an fxMemoryStream, and its
/// bytes are put into the stream when there is no fault. A pipe that nothing reads raises
/// SIGPIPE; where that is ignored, the fault is a system error, EPIPE. So it is with SIGXFSZ
/// and EFBIG, when the stream is a file.
template <class C>
[[nodiscard]] fxStreamFault fxSave(fxStream& stream, C* root) {
    return fxDetail::save<C>(stream, root);
}
template <class C, std::enable_if_t<std::is_base_of_v<fxXDRObj, C>, int> = 0>
[[nodiscard]] fxStreamFault fxSave(fxStream& stream, C& root) {
    return fxDetail::save<C>(stream, &root);
}
template <class C>
[[nodiscard]] fxStreamFault fxSave(fxStream& stream, const fxRef<C>& root) {
    return fxDetail::save<C>(stream, root.get());
}
template <class C>
[[nodiscard]] fxLoaded<C> fxLoad(fxStream& stream) {
    return fxDetail::load<C>(stream);
}
///@}

/// The same from `byteCount` bytes in memory.
template <class C>
[[nodiscard]] fxLoaded<C> fxLoad(const void* bytes, size_t byteCount) {
    fxMemoryStream stream(bytes, byteCount);
    stream.take();  // it is on the stack
    return fxDetail::load<C>(static_cast<fxStream&>(stream));
}

#endif
