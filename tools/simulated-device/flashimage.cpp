// Reads the Intel HEX file that the chip holds at power-up.

#include "flashimage.h"

#include "error.h"
#include "filedescriptor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <numeric>
#include <string_view>
#include <vector>

namespace {

constexpr std::uint8_t erased = 0xff;
constexpr std::size_t recordOverhead = 5; // length, address (2), type, checksum

enum RecordType : std::uint8_t {
    Data = 0,
    EndOfFile = 1,
    SegmentAddress = 2,
    StartSegment = 3,
    LinearAddress = 4,
    StartLinear = 5
};

class ImageReader
{
public:
    explicit ImageReader(const std::string &path)
        : m_path(path)
    {
        m_image.fill(erased);
    }

    FlashImage read();

private:
    [[noreturn]] void fail(const std::string &why) const;
    [[noreturn]] void failInLine(const std::string &why) const;
    std::vector<std::uint8_t> record(std::string_view line) const;
    void apply(const std::vector<std::uint8_t> &record);
    void applyBase(const std::vector<std::uint8_t> &record, unsigned shift);
    void store(std::size_t address, const std::vector<std::uint8_t> &record);
    void requireBootloader() const;

    std::string m_path;
    FlashImage m_image;
    std::size_t m_base = 0;
    std::size_t m_line = 0;
    bool m_ended = false;
};

FlashImage ImageReader::read()
{
    std::ifstream file(m_path);
    if (!file)
        fail(errorText(errno));

    // A directory opens without an error and fails at the first read.
    file.peek();
    if (file.bad())
        fail("cannot be read");

    for (std::string line; !m_ended && std::getline(file, line);) {
        ++m_line;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty())
            apply(record(line));
    }
    if (!m_ended)
        fail("is not an Intel HEX file (no end record)");
    requireBootloader();
    return m_image;
}

void ImageReader::fail(const std::string &why) const
{
    throw Error("image " + m_path + ": " + why);
}

void ImageReader::failInLine(const std::string &why) const
{
    fail(why + " (line " + std::to_string(m_line) + ")");
}

std::uint8_t hexByte(std::string_view digits)
{
    std::uint8_t value = 0;
    const char *end = digits.data() + digits.size();
    const auto [parsed, error] = std::from_chars(digits.data(), end, value, 16);
    if (error != std::errc() || parsed != end)
        throw std::invalid_argument("no hexadecimal byte");
    return value;
}

std::vector<std::uint8_t> ImageReader::record(std::string_view line) const
try {
    const std::size_t digits = line.size() - 1;
    if (line.front() != ':' || digits % 2 != 0)
        failInLine("is not an Intel HEX file");

    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 1; i < line.size(); i += 2)
        bytes.push_back(hexByte(line.substr(i, 2)));
    if (bytes.size() < recordOverhead || bytes.size() != recordOverhead + bytes[0])
        failInLine("is not an Intel HEX file");
    if (std::accumulate(bytes.begin(), bytes.end(), 0U) % 256 != 0)
        failInLine("has a wrong checksum");
    return bytes;
} catch (const std::invalid_argument &) {
    failInLine("is not an Intel HEX file");
}

void ImageReader::apply(const std::vector<std::uint8_t> &record)
{
    switch (record[3]) {
    case Data:
        return store(m_base + (static_cast<std::size_t>(record[1]) << 8) + record[2], record);
    case EndOfFile:
        m_ended = true;
        return;
    case SegmentAddress:
        return applyBase(record, 4);
    case LinearAddress:
        return applyBase(record, 16);
    case StartSegment:
    case StartLinear:
        return;
    default:
        failInLine("has an unknown record type");
    }
}

void ImageReader::applyBase(const std::vector<std::uint8_t> &record, unsigned shift)
{
    if (record[0] != 2)
        failInLine("is not an Intel HEX file");
    m_base = ((static_cast<std::size_t>(record[4]) << 8) + record[5]) << shift;
}

void ImageReader::store(std::size_t address, const std::vector<std::uint8_t> &record)
{
    const std::size_t length = record[0];
    if (address + length > m_image.size())
        failInLine("is too large for the flash of 32 KiB");
    std::copy_n(record.begin() + 4, length, m_image.begin() + static_cast<std::ptrdiff_t>(address));
}

void ImageReader::requireBootloader() const
{
    if (std::all_of(m_image.begin() + bootSectionStart, m_image.end(),
                    [](std::uint8_t byte) { return byte == erased; }))
        fail("holds no bootloader (nothing from 0x7c00 on)");
}

} // namespace

FlashImage readFlashImage(const std::string &path)
{
    return ImageReader(path).read();
}
