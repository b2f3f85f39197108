// What the campaigns share: how much they try, the seed, and generated input.
#ifndef CAMPAIGN_H
#define CAMPAIGN_H

#include <QList>
#include <QtGlobal>

#include <random>

namespace Campaign {

// CAMPAIGN_LENGTH=long, as scripts/campaign sets it; a test run is short.
bool isLong();
int count(int shortCount, int longCount);

// CAMPAIGN_SEED, or always the same one.
quint32 seed();

// Pseudo random numbers that are the same everywhere for one seed.
class Dice
{
public:
    explicit Dice(quint32 start = seed());

    // From 0 to below the bound.
    int below(int bound);
    bool oneIn(int times);
    template <typename T>
    const T &oneOf(const QList<T> &choices)
    {
        return choices.at(below(int(choices.size())));
    }

private:
    std::mt19937 engine;
};

} // namespace Campaign

#endif
