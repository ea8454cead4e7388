// The transcriber that restores object graphs from binary records.
#ifndef FXDS_BINARYREADER_H
#define FXDS_BINARYREADER_H

#include <cstdint>
#include <string>

#include "fxds/BinaryTranscriber.h"
#include "fxds/detail/Owned.h"

namespace fxRecordFormat {
struct Head;
struct ShortBlock;
}  // namespace fxRecordFormat
class fxReaderEntry;
class fxReaderGraph;
class fxRecordReader;

/// Reads the records of docs/stream-format.md. Usually made by
/// fxTranscriber::getReader().
///
/// Nothing is read beyond what is needed, so a reader may sit on a pipe. A
/// graph of any depth is read without recursion. Objects, blocks, texts and the elements of
/// containers are made as their bytes arrive; there may be room before for those that the
/// stream has to come. A readObject() that fails, or that an exception leaves, sets the pointers
/// that it has filled to null and destroys everything that it made.
///
/// **Damaged streams.** An end that comes too early is a null or false result;
/// among the fields of an object it is fatal, because no record's function can
/// go on without them. Contradictions in the records are fatal, with the
/// messages listed in docs/stream-format.md; a line before them says where they
/// are. Neither is fatal to a reader that was made with an fxStreamFault: see
/// fxTranscriber::getReader(). No stream can make the reader touch
/// memory that is not its own: ids are checked for the kind of record that they
/// name, an object is stored only in a pointer to its own class or to one of
/// its declared bases, and of an object's parts only those that it inherits can
/// be pointed to. A type whose record was made by hand without declaring its
/// bases is not checked: a hostile stream can make pointers to its objects that
/// are declared with other classes. FX_TRANSCRIBABLE_TYPE (XdrRecord.h) declares them.
///
/// **Byte orders.** Shorts and ints from any machine read right. An 8-byte long
/// reads right from machines that store its low half first; floats and doubles
/// only from those of the same order. docs/stream-format.md has the table.
///
/// **Ownership.** Objects, blocks and texts belong to the holders of the
/// pointers. Two plain pointers that were equal when they were written share
/// one block; a string always gets its own. Reference counts of the objects are
/// 0 (see fxXDRObj::xdrSuccess()). Objects that no place refers to belong to the reader,
/// which destroys them in its destructor, reset() or forgetObjects(). A later graph of the
/// stream may refer to objects and blocks of an earlier one: they must exist while such
/// graphs are read, unless the reader has forgotten them.
class FX_API fxBinaryReader : public virtual fxBinaryTranscriber, public virtual fxTranscriber {
public:
    /// Reads `byteCount` bytes and converts them in place. False when the
    /// stream ends.
    typedef bool Converter(fxBinaryReader& reader, void* bytes, size_t byteCount);

    /// `inStream` is shared; the marks and the format are those of its header.
    /// Ones that no supported machine writes are fatal.
    fxBinaryReader(fxStream* inStream, short shortMark, long longMark, const char* floatFormat);
    ~fxBinaryReader() override;  ///< Fatal in the middle of readObject().

    const char* className() const override;

    /// Drops the table of the records read so far. References to them can
    /// not be read any more.
    void reset() override;
    void forgetObjects() override;

    bool xdr(char*, unsigned int count) override;
    bool xdr(unsigned char*, unsigned int count) override;
    bool xdr(short*, unsigned int count) override;
    bool xdr(unsigned short*, unsigned int count) override;
    bool xdr(long*, unsigned int count) override;
    bool xdr(unsigned long*, unsigned int count) override;
    bool xdr(float*, unsigned int count) override;
    bool xdr(double*, unsigned int count) override;
    bool xdr(fxStr*, unsigned int count) override;

    ///@{
    /// The pointer is set to null at once and filled in later: by the
    /// readObject() that is running or, outside of one, by the next.
    bool xdr(char**, unsigned int count) override;
    bool xdr(unsigned char**, unsigned int count) override;
    bool xdr(short**, unsigned int count) override;
    bool xdr(unsigned short**, unsigned int count) override;
    bool xdr(long**, unsigned int count) override;
    bool xdr(unsigned long**, unsigned int count) override;
    bool xdr(float**, unsigned int count) override;
    bool xdr(double**, unsigned int count) override;
    bool xdr(char**) override;
    bool xdr(unsigned char**) override;
    ///@}
    bool xdr(void* slot, fxXDRObj* owner, fxTypeObj& declared, fxXDRObj* object,
             void* address) override;
    bool xdr(fxTypeObj& base, void* derived, void* baseAddress) override;
    using fxTranscriber::xdr;

    bool readsInPieces() const override;  ///< True.
    void placesMoved(const void* from, size_t byteCount, void* to) override;
    void placesLieIn(void* container, const Container& kind, size_t before) override;
    size_t placesNoted() const override;
    void forgetPlaces(size_t count) override;
    void setOwner(const void* slot) override;
    void setHolder(const void* slot, TakeHold* hold) override;
    bool xdrText(fxStr& string, char** text, unsigned int byteCount) override;
    fxBool conclude(bool succeeded, fxXDRObj& object, void* address) override;
    void countsBlock(unsigned int& count) override;
    size_t bytesPassed() const override;

    /// Null also in the middle of another readObject(), to which the calls of
    /// xdrSuccess() belong.
    void* readObject(fxTypeObj& expected) override;

    /// Fatal: a reader does not write.
    bool writeObject(void* address, fxXDRObj* object) override;

    /// Takes bytes from the payload of the current record, and of those that
    /// follow it when it is used up. False when the stream ends.
    bool readBytes(void* bytes, size_t byteCount);

protected:
    /// Drops what is left of the current record and reads the next one.
    bool fill();

    /// Sets the slot to null, and notes it as a place for the block that the
    /// record names.
    bool readPrimPointer(void* slot, size_t byteCount);
    /// Reads the object or block of the current record. False when the stream
    /// ends in a block or claims an impossible one.
    bool readInstance();

    ///@{
    /// The converter for numbers of this kind, chosen by the marks of the stream.
    Converter* shorts;
    Converter* longs;
    Converter* floats;
    Converter* doubles;
    ///@}

private:
    struct Reading;
    static constexpr size_t noRecordAt = SIZE_MAX;
    friend class fxTranscriber;  // calls headerComplaint()

    // The stated message for a header that no supported machine writes; or "".
    static std::string headerComplaint(short shortMark, long longMark, const char* floatFormat);

    [[gnu::cold, gnu::noinline]] bool refuse(fxStreamFault::Kind kind, const char* message);
    bool hasRefused() const { return answer != nullptr && *answer; }
    void noteEnd();
    [[gnu::cold]] void trace() const;
    fxStreamFault faultHere(fxStreamFault::Kind kind, const char* message) const;
    bool hasOwnNumbers() const;
    [[gnu::noinline]] bool readPieces(char* bytes, size_t byteCount);
    bool next();
    [[gnu::cold, gnu::noinline]] bool noRecord();
    bool fillPastTypes();
    bool nextInstance();
    [[gnu::noinline]] bool passToInstance();
    void noteMention();
    bool defineType();
    bool awaitBlock(size_t byteCount, bool isText);
    bool settle();
    [[gnu::noinline]] bool takePlaces();
    bool readBlock(fxReaderEntry& entry);
    char* readGrowing(Converter* converter, unsigned int byteCount);
    Converter* converterOf(unsigned int bodyTag) const;
    bool readDefinition(fxTypeObj* root);
    fxReaderEntry* typeOfBody();
    void chooseNamesake(fxReaderEntry& typeEntry, const fxReaderEntry& entry, fxTypeObj* root);
    bool readBody(fxReaderEntry& entry, fxTypeObj* root);
    bool readGraph(fxTypeObj& expected, unsigned int& rootId);
    fxReaderEntry* awaitedText(const fxRecordFormat::ShortBlock& text);
    bool readText(fxReaderEntry& entry, const fxRecordFormat::ShortBlock& text);

    bool isBusy;               // a graph is being read
    bool isTelling;            // its objects are told that it is there
    const void* partUnderWay;  // of an object, or null
    bool hasFailed;            // the body that was read last, or a part of it
    bool mayLeaveData;         // a body was read: data that it left unread may follow
    size_t ranOverAt;          // position of the record behind whose data the object read
                               // that of another object or of a block, or noRecordAt,
    unsigned int ranOverTag;   // and its tag
    const void* owner;         // the slot of a pointer that owns what it gets, or null
    const void* holder;        // the slot of a pointer that holds what it gets, or null
    TakeHold* takeHold;        // the function by which it does
    fxTypeObj* bodyType;       // of the object or part that is being read, or null
    fxDetail::Owned<fxRecordReader> records;
    const fxRecordFormat::Head& head;  // of the current record
    fxDetail::Owned<fxReaderGraph> graph;
};

///@{
/// The converters. Those called BS and SS, which exchange bytes and halves of words, do not
/// change an incomplete group at the end.
FX_API bool fxBinaryReader_shorts(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_longs(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_floats(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_doubles(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_BS(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_longsSS(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_longsBSSS(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_floatsVAX(fxBinaryReader& reader, void* bytes, size_t byteCount);
FX_API bool fxBinaryReader_doublesVAX(fxBinaryReader& reader, void* bytes, size_t byteCount);
///@}

/// The factory that start-up registers for the streams of fxBinaryWriter.
fxTranscriber* makeBinaryReader(fxStream* stream, short shortMark, long longMark,
                                const char* floatFormat);

#endif
