#include "fxds/Data.h"

#include <new>

#include "fxds/base/FreeLists.h"

// Boxed values come from the free lists, those with stricter alignment from the heap. The
// classes add only their constructors to fxValueData.

fxData::fxData(unsigned short type_) : count(0), type(type_) {}

fxData::~fxData() = default;

void* fxData::operator new(size_t size) { return fxFreeLists::allocate(size); }

void* fxData::operator new(size_t size, std::align_val_t alignment) {
    return ::operator new(size, alignment);
}

void fxData::operator delete(void* memory, size_t size) { fxFreeLists::release(memory, size); }

void fxData::operator delete(void* memory, std::align_val_t alignment) {
    ::operator delete(memory, alignment);
}

fxBoolData::fxBoolData(unsigned char value_) : fxValueData(value_) {}

fxIntData::fxIntData(int value_) : fxValueData(value_) {}

fxLongData::fxLongData(long value_) : fxValueData(value_) {}

fxFloatData::fxFloatData(float value_) : fxValueData(value_) {}

fxDoubleData::fxDoubleData(double value_) : fxValueData(value_) {}

fxCharPtrData::fxCharPtrData(char* text) : fxValueData(text) {}

fxCharPtrData::~fxCharPtrData() { ::operator delete(value); }

fxVoidData::fxVoidData() : fxData(fxDT_void) {}

void fxVoidData::deliverTo(void (*function)(), void* closure) {
    reinterpret_cast<void (*)(void*)>(function)(closure);
}

void fxVoidData::getValue(unsigned short, void*) {}

char* fxCopyCharPtr(const char* text) {
    if (text == nullptr) return nullptr;
    const size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(::operator new(size), text, size));
}
