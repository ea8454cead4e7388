// The messages that several sources of fxBinaryReader refuse a stream with.
#ifndef FXDS_STREAMS_READERFAULTS_H
#define FXDS_STREAMS_READERFAULTS_H

namespace fxReaderFaults {

inline constexpr char badNews[] = "XXX bad news!";
inline constexpr char baddestNews[] = "XXX baddest news";
inline constexpr char formatError[] = "format error";
inline constexpr char changed[] = "a container was changed in xdr() after it was read";

}  // namespace fxReaderFaults

#endif
