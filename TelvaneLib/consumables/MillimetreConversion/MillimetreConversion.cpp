// The natural definition of the conversion that the wire computations import. It stands in a static
// library of its own so that a program with a definition of its own (another rounding, say) keeps it.

double ConvertmmToInches(double millimetres);

double ConvertmmToInches(double millimetres)
{
    return millimetres / 25.4;
}
