#ifndef FLASHIMAGE_H
#define FLASHIMAGE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

constexpr std::size_t flashSize = 0x8000;
constexpr std::size_t bootSectionStart = 0x7c00;

// The whole flash of the chip; unwritten cells read 0xff.
using FlashImage = std::array<std::uint8_t, flashSize>;

// Throws Error when the file is no Intel HEX image with a bootloader that fits the flash.
FlashImage readFlashImage(const std::string &path);

#endif
