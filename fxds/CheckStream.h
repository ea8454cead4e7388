// A check of saved objects that does not need their classes.
#ifndef FXDS_CHECKSTREAM_H
#define FXDS_CHECKSTREAM_H

#include <cstddef>

#include "fxds/StreamFault.h"
#include "fxds/detail/FilePath.h"

class fxStream;

///@{
/// Checks the bytes of a stream to its end. Returns the first fault: its kind, offset and
/// record, the class of the object whose fields are there, and in `reason` a description.
/// Makes none of the objects, and needs none of their classes: it finds contradictions
/// between records and missing data. It does not find faults that depend on a class, such
/// as which fields an object has; so fxLoad() may refuse what this accepts.
///
/// The bytes of a stream are taken into memory. Of a file only the structure of the records
/// is examined, and zeros behind the records are a fault at once: a huge file, which may be
/// sparse, costs no more than its records.
[[nodiscard]] FX_API fxStreamFault fxCheckStream(const void* bytes, size_t byteCount);
[[nodiscard]] FX_API fxStreamFault fxCheckStream(fxStream& stream);
[[nodiscard]] FX_API fxStreamFault fxCheckStream(const fxDetail::FilePath& path);
///@}

#endif
