// Looking for damage in saved objects without having their classes.
#ifndef FXDS_CHECKSTREAM_H
#define FXDS_CHECKSTREAM_H

#include <cstddef>

#include "fxds/StreamFault.h"
#include "fxds/detail/FilePath.h"

class fxStream;

///@{
/// The first thing that is wrong with the bytes of a stream, to its end: the kind,
/// the offset, the record, the class of the object whose fields are there, and
/// in `reason` the description. Makes none of the objects, and needs none of their
/// classes: it finds contradictions between records and what is missing. It does not
/// find what depends on a class, such as which fields an object has; so
/// fxLoad() may refuse what this accepts.
///
/// The bytes of a stream are taken into memory. Of a file only what the records
/// say of themselves is looked at, and zeros behind the records are a fault at once:
/// a huge file, which may be one of holes, costs no more than its records.
[[nodiscard]] FX_API fxStreamFault fxCheckStream(const void* bytes, size_t byteCount);
[[nodiscard]] FX_API fxStreamFault fxCheckStream(fxStream& stream);
[[nodiscard]] FX_API fxStreamFault fxCheckStream(const fxDetail::FilePath& path);
///@}

#endif
