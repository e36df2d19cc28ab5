#pragma once

#include <string>

namespace Halcyra::DataProcessing::Units {

/**
 * A unit of measure. Values are held in a base unit (metres for distances,
 * square metres for areas) and converted for display.
 * Applications derive concrete units and own them.
 */
class AbstractUnit
{
public:
    virtual ~AbstractUnit() = default;

    /// Converts a value in this unit into the base unit.
    virtual double convertToBase(double value) const = 0;
    /// The factor by which a base value is multiplied to give this unit.
    virtual double getFactorFromBase() const = 0;
    /// Converts a value in the base unit into this unit.
    virtual double convertFromBase(double value) const = 0;
    /// The unit's full name, for menus ("metres").
    virtual std::string getName() const = 0;
    /// Whether this unit is the base unit of its quantity.
    virtual bool isBaseUnit() const = 0;
    /// The unit's symbol, written directly after a number ("m").
    virtual std::string getSymbol() const = 0;
};

} // namespace Halcyra::DataProcessing::Units
