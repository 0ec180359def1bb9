/// \file
/// Diameter and weight of welding wires.
///
/// The library calls ConvertmmToInches() and does not define it, so that the program chooses how to round.
/// Without a definition in the program, the library divides by 25.4. A definition must be in an object file of
/// the program, not only in a static library: nothing else would make the linker take it from there. Programs
/// that call the function themselves define it, or link the static library TelvaneMillimetreConversion (CMake
/// target `Telvane::MillimetreConversion`).
///
/// These functions may be called from any thread if the program's ConvertmmToInches() may.
#pragma once

#include <Telvane/Consumables.h>
#include <Telvane/detail/Export.h>

/// Converts a length from millimetres to inches, for metric wire sizes. Defined by the program, if at all.
/// \param millimetres length in millimetres
/// \return length in inches
TELVANE_EXPORT double ConvertmmToInches(double millimetres);

namespace Telvane
{

/// \return the nominal diameter of a wire size, in inches; 0 for a code that is not a size
TELVANE_EXPORT double GetWireDiameterInInches(_WireSize_e size);

/// Finds the wire size that is nearest to a diameter. A diameter on the bound between two sizes belongs to
/// the larger.
/// \param diameter diameter in inches
/// \return the size; WireSize_Unknown below 0.0115 in, from 0.171875 in, and if \p diameter is not a number
TELVANE_EXPORT _WireSize_e GetWireDiameterFromInches(float diameter);

/// Computes the weight of wire from the density of its alloy.
/// \param alloy    the alloy. A code below 40 that is not an alloy counts as steel; a code from 40, including
///                 255, counts as an alloy from 36 to 39.
/// \param diameter diameter in inches
/// \return the weight of one foot of wire, in pounds; 0 if the radius is below 0.01 in
TELVANE_EXPORT float GetWireWeight(_AlloyID_e alloy, float diameter);

} // namespace Telvane
