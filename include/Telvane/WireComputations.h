/// \file
/// Diameter and weight of welding wire from its consumable codes.
///
/// The program supplies one function, ConvertmmToInches(). A program that calls nothing here may still have
/// to satisfy its linker: link the static library TelvaneMillimetreConversion (CMake target
/// `Telvane::MillimetreConversion`), which holds the natural definition, or define the function.
///
/// Everything here may be used from any thread, as far as the program's ConvertmmToInches() may.
#pragma once

#include <Telvane/Consumables.h>
#include <Telvane/Export.h>

/// Converts a length from millimetres to inches. The library calls this function for the metric wire sizes
/// and does not define it: the program chooses how to round. Dividing by 25.4 is the natural choice.
/// \param millimetres length in millimetres
/// \return the length in inches
TELVANE_EXPORT double ConvertmmToInches(double millimetres);

namespace Telvane
{

/// \return the nominal diameter of that wire size, in inches; 0.0 for a code without a size
TELVANE_EXPORT double GetWireDiameterInInches(_WireSize_e size);

/// Finds the wire size nearest to a diameter. The bounds between neighbouring sizes lie about halfway, and a
/// diameter on a bound belongs to the larger size.
/// \param diameter in inches
/// \return the nearest size; WireSize_Unknown below 0.0115, from 0.171875 on, and for what is not a number
TELVANE_EXPORT _WireSize_e GetWireDiameterFromInches(float diameter);

/// \param alloy decides on the density; a code without an alloy counts as steel, one above 39 (255 too) as
///              the alloys from 36 to 39
/// \param diameter in inches
/// \return the weight of one foot of wire, in pounds; 0.0 for a radius below 0.01 inches
TELVANE_EXPORT float GetWireWeight(_AlloyID_e alloy, float diameter);

} // namespace Telvane
