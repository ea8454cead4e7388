// Random edits of a typed array, checked against std::vector and the stated
// capacities step by step.
#ifndef FXDS_ARRAYMODEL_H
#define FXDS_ARRAYMODEL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "tests/support/TestSeed.h"

/// Drives an `Array` and a vector of its items side by side. `MakeItem` makes
/// an item from a small number; equal numbers make equal items.
template <class Array, class Item, class MakeItem>
class ArrayModel {
public:
    explicit ArrayModel(MakeItem make_) : make(make_), random(testSeed()) {}

    void run(int steps) {
        for (int step = 0; step < steps; ++step) {
            edit(number(16));
            if (model.size() > 60) shorten();
            ASSERT_TRUE(agrees()) << "at step " << step;
        }
    }

private:
    typedef std::vector<Item> Items;

    unsigned int number(std::size_t below) {
        return static_cast<unsigned int>(random() % std::max<std::size_t>(below, 1));
    }
    Item item() { return make(number(9)); }
    unsigned int position() { return number(model.size() + 1); }
    unsigned int countFrom(unsigned int start) { return number(model.size() - start + 1); }
    typename Items::iterator place(unsigned int index) {
        return model.begin() + static_cast<std::ptrdiff_t>(index);
    }

    void edit(unsigned int kind) {
        switch (kind) {
            case 0:
            case 1:
            case 2:
                append(item());
                break;
            case 3:
                insert(item(), position());
                break;
            case 4:
                if (!model.empty()) appendOwn(number(model.size()));
                break;
            case 5:
                if (!model.empty()) insertOwn(number(model.size()), position());
                break;
            case 6:
                insertMany(position());
                break;
            case 7:
                insertSelf(position());
                break;
            case 8:
                remove();
                break;
            case 9:
                resize();
                break;
            case 10:
                reserve();
                break;
            case 11:
                exchange();
                break;
            case 12:
                cut();
                break;
            case 13:
                takeCopies();
                break;
            case 14:
                find();
                break;
            default:
                replaceWhole();
                break;
        }
    }

    void append(const Item& added) {
        array.append(added);
        grownByAppend();
        model.push_back(added);
    }
    void grownByAppend() {
        if (model.size() == capacity) capacity += 4;
    }
    void grownTo(std::size_t length) { capacity = std::max<std::size_t>(capacity, length); }
    void insert(const Item& added, unsigned int index) {
        array.insert(added, index);
        grownTo(model.size() + 1);
        model.insert(place(index), added);
    }
    void appendOwn(unsigned int index) {
        array.append(array[index]);
        grownByAppend();
        model.push_back(Item(model[index]));
    }
    void insertOwn(unsigned int from, unsigned int to) {
        array.insert(array[from], to);
        grownTo(model.size() + 1);
        model.insert(place(to), Item(model[from]));
    }
    void insertMany(unsigned int index) {
        Array others;
        Items otherModel;
        for (unsigned int n = number(4); n > 0; --n) {
            otherModel.push_back(item());
            others.append(otherModel.back());
        }
        if (index == model.size()) {
            array.append(others);
        } else {
            array.insert(others, index);
        }
        if (!otherModel.empty()) grownTo(model.size() + otherModel.size());
        model.insert(place(index), otherModel.begin(), otherModel.end());
    }
    void insertSelf(unsigned int index) {
        if (model.size() > 30) return;
        const Items copy = model;
        if (index == model.size()) {
            array.append(array);
        } else {
            array.insert(array, index);
        }
        if (!copy.empty()) grownTo(2 * copy.size());
        model.insert(place(index), copy.begin(), copy.end());
    }
    void remove() {
        const unsigned int start = position();
        const unsigned int count = countFrom(start);
        array.remove(start, count);
        model.erase(place(start), place(start + count));
    }
    void shorten() {
        array.resize(5);
        model.resize(5);
        capacity = 5;
    }
    // What new elements hold is the array's business; they get a value here.
    void resize() {
        const unsigned int had = array.length();
        const unsigned int length = number(70);
        array.resize(length);
        model.resize(length);
        for (unsigned int i = had; i < length; ++i) array[i] = model[i] = item();
        capacity = length;
    }
    void reserve() {
        const unsigned int wanted = number(100);
        array.setMaxLength(wanted);
        capacity = std::max<std::size_t>(wanted, model.size());
    }
    void exchange() {
        if (model.empty()) return;
        const unsigned int i = number(model.size());
        const unsigned int j = number(model.size());
        array.swap(i, j);
        std::swap(model[i], model[j]);
    }
    void cut() {
        const unsigned int start = position();
        const unsigned int count = countFrom(start);
        const Array taken = array.cut(start, count);
        EXPECT_TRUE(same(taken, Items(place(start), place(start + count))));
        model.erase(place(start), place(start + count));
    }
    void takeCopies() {
        const unsigned int start = position();
        const unsigned int count = countFrom(start);
        EXPECT_TRUE(same(array.extract(start, count), Items(place(start), place(start + count))));
        EXPECT_TRUE(same(array.head(count), Items(model.begin(), place(count))));
        const unsigned int skipped = array.length() - count;
        EXPECT_TRUE(same(array.tail(count), Items(place(skipped), model.end())));
    }
    void find() {
        const Item sought = item();
        const unsigned int start = position();
        const auto found = std::find(place(start), model.end(), sought);
        const unsigned int index = array.find(sought, start);
        EXPECT_EQ(index, found == model.end() ? Array::notFound
                                              : static_cast<unsigned int>(found - model.begin()));
    }
    void replaceWhole() {
        Array copy(array);
        EXPECT_EQ(copy.getMaxLength(), capacity);
        Array moved(std::move(copy));
        EXPECT_TRUE(copy.isEmpty());
        if (number(2) == 0) {
            array = moved;
            EXPECT_TRUE(same(moved, model));
        } else {
            array = std::move(moved);
        }
        array.sort();
        std::vector<unsigned int> order;
        for (unsigned int i = 1; i < array.length(); ++i) {
            EXPECT_LE(array.compareElements(&array[i - 1], &array[i]), 0);
        }
        EXPECT_TRUE(std::is_permutation(array.begin(), array.end(), model.begin(), model.end()));
        model.assign(array.begin(), array.end());
    }

    static bool same(const Array& a, const Items& items) {
        return std::equal(a.begin(), a.end(), items.begin(), items.end());
    }
    bool agrees() const {
        return array.length() == model.size() && array.getMaxLength() == capacity &&
               array.isEmpty() == model.empty() && same(array, model);
    }

    MakeItem make;
    std::mt19937 random;
    Array array;
    Items model;
    std::size_t capacity = 0;
};

template <class Array, class Item, class MakeItem>
void checkAgainstModel(int steps, MakeItem make) {
    ArrayModel<Array, Item, MakeItem>(make).run(steps);
}

#endif
