#include "fxds/BinaryTranscriber.h"

fxBinaryTranscriber::fxBinaryTranscriber()
    : fxTranscriber(nullptr, false), cursor(buffer), room(bufferBytes), used(0) {}

fxBinaryTranscriber::~fxBinaryTranscriber() = default;
