// The command line of the tool.

#include "options.h"

#include "error.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <getopt.h>

namespace {

constexpr std::size_t idDigits = 4;
constexpr std::size_t longestPortName = 64;
constexpr char seeHelp[] = " (see --help)";

constexpr char helpMessage[] =
    R"(Usage: simulated-device [OPTION...] --image FILE.hex -- COMMAND [ARG...]

Runs COMMAND with a simulated board plugged in: an ATmega328P with a serial
bootloader, in real time, behind a USB serial adapter of the FT232R kind. COMMAND
and its children find the adapter as a serial port and open it as /dev/NAME.
Opening the port resets the board, and so does a rising edge of DTR.

Options:
  --image FILE.hex   what the chip holds at power-up, bootloader and sketch, as
                     Intel HEX (required)
  --port NAME        name of the port in /dev (default: ttyUSB0)
  --vendor HEX       USB vendor identifier (default: 0403)
  --product HEX      USB product identifier (default: 6001)
  --serial TEXT      serial number of the adapter (default: none)
  --control SOCKET   path of the control socket (default: in a private folder)
  --verbose          write warnings of the chip and control commands to standard
                     error
  --help             show this text

Control:
  COMMAND finds the path of a Unix stream socket in the environment variable
  SIMULATED_DEVICE_CONTROL. It takes one command per line and gives one line as
  the answer, which starts with "ok" or "error". The program
  simulated-device-control sends one command and shows the answer.

  unplug             remove the adapter; an open port fails
  replug             plug it in again under the same name; the chip starts anew
                     and keeps its flash
  reset              reset the chip
  dump FILE          write the 32 KiB of flash to FILE (relative to the folder in
                     which simulated-device was started)
  received           "ok HEX": the last 256 bytes that the host was handed, at the
                     right speed, since the port was opened
  status             "ok plugged|unplugged opens=N resets=N in=N out=N pc=0xHHHH":
                     openings of the port, resets by DTR or by "reset", bytes to
                     and from the chip, program counter

Signals:
  SIGTERM, SIGINT and SIGHUP are passed on to COMMAND; the simulation ends when
  COMMAND does. Should the simulation be killed, COMMAND is killed with it.

Exit status:
  that of COMMAND, 128 plus the number of the signal that ended it, or
  125          simulated-device itself failed
  126          COMMAND was found and cannot be run
  127          COMMAND was not found
)";

enum Option : int { Port = 1, Product, Vendor, Serial, Image, Control, Verbose, Help };

constexpr option optionTable[] = {
    {"port", required_argument, nullptr, Port},
    {"product", required_argument, nullptr, Product},
    {"vendor", required_argument, nullptr, Vendor},
    {"serial", required_argument, nullptr, Serial},
    {"image", required_argument, nullptr, Image},
    {"control", required_argument, nullptr, Control},
    {"verbose", no_argument, nullptr, Verbose},
    {"help", no_argument, nullptr, Help},
    {nullptr, 0, nullptr, 0},
};

std::string portName(const std::string &name)
{
    if (name.empty() || name.size() > longestPortName || name.find('/') != std::string::npos
        || name.front() == '.')
        throw Error("not a port name: '" + name + "'");
    return name;
}

// The identifier as udev writes it: four digits in lower case.
std::string usbId(const std::string &digits)
{
    const auto isHexDigit = [](unsigned char c) {
        return std::isxdigit(c) != 0;
    };
    if (digits.empty() || digits.size() > idDigits
        || !std::all_of(digits.begin(), digits.end(), isHexDigit))
        throw Error("not a USB identifier of one to four hexadecimal digits: '" + digits + "'");
    std::string id(idDigits - digits.size(), '0');
    for (const char digit : digits)
        id.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(digit))));
    return id;
}

void apply(Options &options, int option, char **arguments)
{
    switch (option) {
    case Port:
        options.identity.portName = portName(optarg);
        break;
    case Product:
        options.identity.productId = usbId(optarg);
        break;
    case Vendor:
        options.identity.vendorId = usbId(optarg);
        break;
    case Serial:
        options.identity.serialNumber = optarg;
        break;
    case Image:
        options.imagePath = optarg;
        break;
    case Control:
        options.controlPath = optarg;
        break;
    case Verbose:
        options.verbose = true;
        break;
    case Help:
        options.help = true;
        break;
    case ':':
        throw Error(std::string(arguments[optind - 1]) + " needs a value" + seeHelp);
    default:
        throw Error("unknown option " + std::string(arguments[optind - 1]) + seeHelp);
    }
}

} // namespace

Options parseOptions(int count, char **arguments)
{
    Options options;
    opterr = 0;
    for (;;) {
        const int option = getopt_long(count, arguments, "+:", optionTable, nullptr);
        if (option == -1)
            break;
        apply(options, option, arguments);
    }
    if (options.help)
        return options;

    if (options.imagePath.empty())
        throw Error(std::string("no --image given") + seeHelp);
    if (optind == count)
        throw Error(std::string("no command given") + seeHelp);
    options.command = arguments + optind;
    return options;
}

std::string helpText()
{
    return helpMessage;
}
