/*
 * Level: a severity value and its static display name.
 */
#include "kt/logging.h"

namespace Quivera {
namespace System {

namespace {

const char* level_name(Level::Enum value)
{
    switch (value) {
    case Level::All: return "All";
    case Level::Info: return "Info";
    case Level::Warning: return "Warning";
    case Level::Severe: return "Severe";
    case Level::Off: return "Off";
    }
    return "Unknown log level";
}

}  // namespace

Level::Level(Enum level_value) : name(level_name(level_value)), value(level_value) {}

Level::Level(const Level& other) : name(other.name), value(other.value) {}

Level& Level::operator=(const Level& other)
{
    copy(other);
    return *this;
}

void Level::copy(const Level& other)
{
    name = other.name;
    value = other.value;
}

const char* Level::getName() const
{
    return name;
}

/* Only the numeric value takes part in comparisons, as signed integers. */
bool Level::operator==(const Level& other) const
{
    return static_cast<int>(value) == static_cast<int>(other.value);
}

bool Level::operator<(const Level& other) const
{
    return static_cast<int>(value) < static_cast<int>(other.value);
}

bool Level::operator>(const Level& other) const
{
    return static_cast<int>(value) > static_cast<int>(other.value);
}

bool Level::operator<=(const Level& other) const
{
    return static_cast<int>(value) <= static_cast<int>(other.value);
}

bool Level::operator>=(const Level& other) const
{
    return static_cast<int>(value) >= static_cast<int>(other.value);
}

}  // namespace System
}  // namespace Quivera
