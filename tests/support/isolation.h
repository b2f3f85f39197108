#ifndef ISOLATION_H
#define ISOLATION_H

// Cuts this thread, and the threads and processes that it starts, off from all networks.
class Isolation
{
public:
    Isolation();
    ~Isolation();

    Isolation(const Isolation &) = delete;
    Isolation &operator=(const Isolation &) = delete;

    // False where the system does not allow it.
    bool isIsolated() const;

private:
    int formerNetwork;
    bool isolated;
};

#endif
