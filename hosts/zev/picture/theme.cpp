// Theme: the standard table of colours, and what of it is legible on which ground.
//
// Whole numbers only, so that every machine gives the same colours.
#include "picture/svg.hpp"

#include <algorithm>
#include <array>

namespace picture {

namespace {

using Rgb = std::array<uint32_t, 3>;

constexpr uint32_t kFull = 255;

Rgb split(uint32_t value) { return {value >> 16 & 255, value >> 8 & 255, value & 255}; }
uint32_t join(const Rgb &rgb) { return rgb[0] << 16 | rgb[1] << 8 | rgb[2]; }

// Quarters of a channel in a hue: 24 hues of 15 degrees from red on.
uint32_t quarters(uint32_t hue, uint32_t channel) {
    const uint32_t at = (hue + 24 - channel * 8) % 24; // 0 where the channel is full
    const uint32_t away = std::min(at, 24 - at);       // 12 on the other side
    return away <= 4 ? 4 : away >= 8 ? 0 : 8 - away;
}

// Numbers from 10 on: the hue by tens, five values by the digit, odd ones half as saturated.
Rgb by_rule(uint32_t number) {
    constexpr uint32_t kPercents[] = {100, 65, 50, 30, 15};
    const uint32_t percent = kPercents[number % 10 / 2];
    Rgb rgb;
    for (uint32_t channel = 0; channel < 3; ++channel) {
        const uint32_t pure = 2 * quarters(number / 10 - 1, channel);
        rgb[channel] = kFull * percent * (number % 2 ? pure / 2 + 4 : pure) / 800;
    }
    return rgb;
}

uint32_t standard(uint32_t number) {
    constexpr uint32_t kFirst[] = {0xffffff, 0xff0000, 0xffff00, 0x00ff00, 0x00ffff,
                                   0x0000ff, 0xff00ff, 0xffffff, 0x808080, 0xc0c0c0};
    constexpr uint32_t kGreys[] = {0x333333, 0x505050, 0x696969, 0x828282, 0xbebebe, 0xffffff};
    if (number < std::size(kFirst)) return kFirst[number];
    if (number >= 250) return kGreys[std::min<uint32_t>(number, 255) - 250];
    return join(by_rule(number));
}

// How bright it is, up to 650 million; the eye's response is taken for a square.
uint64_t brightness(const Rgb &rgb) {
    return 2126 * uint64_t{rgb[0]} * rgb[0] + 7152 * uint64_t{rgb[1]} * rgb[1] +
           722 * uint64_t{rgb[2]} * rgb[2];
}

// The brighter of two has to be 2.4 times as bright as the other, some stray light included.
bool is_legible(const Rgb &rgb, const Rgb &ground) {
    constexpr uint64_t kStray = 32'500'000;
    const uint64_t a = brightness(rgb) + kStray, b = brightness(ground) + kStray;
    return std::max(a, b) * 10 >= std::min(a, b) * 24;
}

// Mixed with what the ground is not, no more than it takes.
Rgb legible(const Rgb &rgb, const Rgb &ground, uint32_t far) {
    for (uint32_t part = 0; part < 32; ++part) {
        Rgb mixed;
        for (size_t i = 0; i < 3; ++i) mixed[i] = (rgb[i] * (32 - part) + far * part) / 32;
        if (is_legible(mixed, ground)) return mixed;
    }
    return {far, far, far};
}

uint32_t on_ground(uint32_t value, const Theme &theme) {
    return join(legible(split(value), split(ground_of(theme)), theme.is_dark ? kFull : 0));
}

// The standard numbers on one ground.
std::array<uint32_t, 256> table_of(const Theme &theme) {
    std::array<uint32_t, 256> table;
    for (uint32_t number = 0; number < table.size(); ++number)
        table[number] = on_ground(standard(number), theme);
    table[0] = table[7] = theme.is_dark ? 0xffffff : 0;
    return table;
}

} // namespace

uint32_t ground_of(const Theme &theme) { return theme.is_dark ? 0x1f2328 : 0xffffff; }

uint32_t rgb_of(Ink ink, const Theme &theme) {
    static const std::array<uint32_t, 256> kLight = table_of({false}), kDark = table_of({true});
    if (ink.value & Ink::kTrue) return on_ground(ink.value & 0xffffff, theme);
    return (theme.is_dark ? kDark : kLight)[std::min<uint32_t>(ink.value, 255)];
}

} // namespace picture
