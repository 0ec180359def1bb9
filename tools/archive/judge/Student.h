#pragma once

namespace TelvaneArchive
{

/// \return the probability that a variable with Student's distribution is below \p t
/// \param freedom  degrees of freedom, at least 1
double studentProbability(double t, double freedom);

/// \return the value that a variable with Student's distribution exceeds with \p probability
/// \param probability  above 0, at most 0.5
double studentQuantile(double probability, double freedom);

} // namespace TelvaneArchive
