#ifndef FILEDESCRIPTOR_H
#define FILEDESCRIPTOR_H

#include <string>
#include <sys/un.h>

// A file descriptor that is closed with its owner.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number)
        : m_number(number)
    {
    }
    FileDescriptor(FileDescriptor &&other) noexcept;
    FileDescriptor &operator=(FileDescriptor &&other) noexcept;
    ~FileDescriptor();

    bool isOpen() const { return m_number >= 0; }
    int number() const { return m_number; }
    void close();

private:
    int m_number = -1;
};

FileDescriptor openUnixSocket();
sockaddr_un unixAddress(const std::string &path);
bool sendAll(const FileDescriptor &socket, const std::string &bytes);
std::string errorText(int errorNumber);

#endif
