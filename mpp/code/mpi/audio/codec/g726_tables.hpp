// G.726: the tables of the quantizer and its adaptation, one row of magnitudes a rate. A negative code stands
// for the magnitude of its complement.
#pragma once

#include <array>
#include <cstdint>

namespace zep::g726 {

// Inverse quantizer output DQLN, base-2 logarithm with 7 fraction bits; -2048 is a difference of 0.
template<int kBits> inline constexpr std::array<int16_t, 1 << (kBits - 1)> dequant_tab = {};
template<> inline constexpr std::array<int16_t, 2> dequant_tab<2> = {116, 365};
template<> inline constexpr std::array<int16_t, 4> dequant_tab<3> = {-2048, 135, 273, 373};
template<> inline constexpr std::array<int16_t, 8> dequant_tab<4> = {-2048, 4, 135, 213, 273, 323, 373, 425};
template<>
inline constexpr std::array<int16_t, 16> dequant_tab<5> = {-2048, -66, 28,  104, 169, 224, 274, 318,
                                                           358,   395, 429, 459, 488, 514, 539, 566};

// Scale factor multiplier W(I), with the 5 fraction bits that FILTD takes it with.
template<int kBits> inline constexpr std::array<int32_t, 1 << (kBits - 1)> wik_tab = {};
template<> inline constexpr std::array<int32_t, 2> wik_tab<2> = {-704, 14048};
template<> inline constexpr std::array<int32_t, 4> wik_tab<3> = {-128, 960, 4384, 18624};
template<>
inline constexpr std::array<int32_t, 8> wik_tab<4> = {-384, 576, 1312, 2048, 3584, 6336, 11360, 35904};
template<>
inline constexpr std::array<int32_t, 16> wik_tab<5> = {448,  448,  768,  1248, 1280,  1312,  1856,  3200,
                                                       4512, 5728, 7008, 8960, 11456, 14080, 16928, 22272};

// Speed control input F(I), 9 fraction bits.
template<int kBits> inline constexpr std::array<int16_t, 1 << (kBits - 1)> fik_tab = {};
template<> inline constexpr std::array<int16_t, 2> fik_tab<2> = {0, 0xe00};
template<> inline constexpr std::array<int16_t, 4> fik_tab<3> = {0, 0x200, 0x400, 0xe00};
template<> inline constexpr std::array<int16_t, 8> fik_tab<4> = {0, 0, 0, 0x200, 0x200, 0x200, 0x600, 0xe00};
template<>
inline constexpr std::array<int16_t, 16> fik_tab<5> = {
    0, 0, 0, 0, 0, 0x200, 0x200, 0x200, 0x200, 0x200, 0x400, 0x600, 0x800, 0xa00, 0xc00, 0xc00};

// Decision levels of the quantizer, on the same logarithm: the magnitude is the number of levels not above
// it.
template<int kBits> inline constexpr std::array<int16_t, 1 << (kBits - 1)> decision_tab = {};
template<> inline constexpr std::array<int16_t, 1> decision_tab<2> = {261};
template<> inline constexpr std::array<int16_t, 3> decision_tab<3> = {8, 218, 331};
template<> inline constexpr std::array<int16_t, 7> decision_tab<4> = {-124, 80, 178, 246, 300, 349, 400};
template<>
inline constexpr std::array<int16_t, 15> decision_tab<5> = {-122, -16, 68,  139, 198, 250, 298, 339,
                                                            378,  413, 445, 475, 502, 528, 553};

} // namespace zep::g726
