// The length and the seed of a campaign, from its environment.
#include "campaign.h"

namespace {

constexpr int usualSeed = 328;

} // namespace

bool Campaign::isLong()
{
    return qgetenv("CAMPAIGN_LENGTH") == "long";
}

int Campaign::count(int shortCount, int longCount)
{
    return isLong() ? longCount : shortCount;
}

quint32 Campaign::seed()
{
    bool given = false;
    const int value = qEnvironmentVariableIntValue("CAMPAIGN_SEED", &given);
    return quint32(given ? value : usualSeed);
}

Campaign::Dice::Dice(quint32 start)
    : engine(start)
{
}

// Not by a distribution: the library's are not the same everywhere.
int Campaign::Dice::below(int bound)
{
    return int(engine() % quint32(bound));
}

bool Campaign::Dice::oneIn(int times)
{
    return below(times) == 0;
}
