// What a value slot of the host holds, for each native type of a declared type word. Scalars lie in the slot itself;
// texts and arrays are pointers.
#pragma once

#include "host/ClassSystem.h"

#include <bit>
#include <cstdint>
#include <string>

namespace netrove {

// The text of a "unicodeString"; null if the host sets nothing.
using Text = const std::u16string*;

template <class T>
struct ValueSlot;

// "logical scalar": 0 or 1 when written; any other value than 0 counts as true when read.
template <>
struct ValueSlot<bool> {
    static bool read(const vcos::COSValue& slot) noexcept { return slot.Bits != 0; }
    static void write(vcos::COSValue& slot, bool value) noexcept { slot.Bits = value ? 1 : 0; }
};

// "int32 scalar": sign-extended.
template <>
struct ValueSlot<int> {
    static int read(const vcos::COSValue& slot) noexcept {
        return static_cast<int>(static_cast<std::uint32_t>(slot.Bits));
    }
    static void write(vcos::COSValue& slot, int value) noexcept {
        slot.Bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    }
};

// "uint64 scalar"
template <>
struct ValueSlot<unsigned long long> {
    static unsigned long long read(const vcos::COSValue& slot) noexcept { return slot.Bits; }
    static void write(vcos::COSValue& slot, unsigned long long value) noexcept { slot.Bits = value; }
};

// "double scalar": the bits of the double.
template <>
struct ValueSlot<double> {
    static double read(const vcos::COSValue& slot) noexcept { return std::bit_cast<double>(slot.Bits); }
    static void write(vcos::COSValue& slot, double value) noexcept { slot.Bits = std::bit_cast<std::uint64_t>(value); }
};

// Texts and array handles. Each accessor decides who owns what the pointer refers to.
template <class Pointee>
struct ValueSlot<Pointee*> {
    static_assert(sizeof(Pointee*) == sizeof(std::uint64_t), "a slot holds exactly one pointer");
    static Pointee* read(const vcos::COSValue& slot) noexcept { return std::bit_cast<Pointee*>(slot.Bits); }
    static void write(vcos::COSValue& slot, Pointee* value) noexcept {
        slot.Bits = std::bit_cast<std::uint64_t>(value);
    }
};

} // namespace netrove
