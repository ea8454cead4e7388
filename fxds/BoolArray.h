// Array of booleans, one byte each.
#ifndef FXDS_BOOLARRAY_H
#define FXDS_BOOLARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxBoolArray_type;

/// An array of booleans. Its elements are bytes, 0 being false, so that no byte from a
/// stream or a new, unspecified element is ever taken for a bool. Everything that adds an
/// item, and xdr(), stores 0 or 1: 1 for any number but 0. find() compares that byte.
class FX_API fxBoolArray : public fxRecordedArray<fxBoolArray, fxBool, fxBoolArray_type> {
public:
    typedef bool value_type;  ///< Of what std::back_inserter() and its like add.

    using fxRecordedArray::fxRecordedArray;
    /// As in fxTypedArray, with 0 or 1 for each item.
    fxBoolArray(fxDetail::ArrayItems<fxBool> items) : fxRecordedArray(items) { setItems(items); }

    /// As in fxTypedArray, with 0 or 1 for each item.
    template <class... Items>
    static fxBoolArray of(const Items&... items) {
        fxBoolArray made;
        (made.append(fxDetail::ArrayItem<bool>(items).value), ...);
        return made;
    }

    ///@{
    /// As in fxTypedArray, with 0 or 1 for each bool.
    void append(bool item) { fxRecordedArray::append(fxBool{item}); }
    void append(const fxBoolArray& other) { fxRecordedArray::append(other); }
    void push_back(bool item) { append(item); }
    fxBool& emplace(bool item = false) { return fxRecordedArray::emplace(fxBool{item}); }
    fxBool& emplace_back(bool item = false) { return emplace(item); }
    void insert(bool item, unsigned int index) { fxRecordedArray::insert(fxBool{item}, index); }
    void insert(const fxBoolArray& other, unsigned int index) {
        fxRecordedArray::insert(other, index);
    }
    template <class Place, class... Items, fxDetail::IfPlace<fxBool, Place> = 0>
    fxBool* insert(Place place, Items... items) {
        return fxRecordedArray::insert(place, items...);
    }
    unsigned int find(bool item, unsigned int start = 0) const {
        return fxRecordedArray::find(fxBool{item}, start);
    }
    bool contains(bool item) const { return find(item) != notFound; }
    ///@}

    using fxRecordedArray::xdr;
    /// As that of the base; what is read becomes 0 or 1. False on failure.
    fxBool xdr(fxTranscriber& transcriber) override;

private:
    void normalise();
    void setItems(fxDetail::ArrayItems<fxBool> items);
};

#endif
