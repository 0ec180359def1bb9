// The usual definition of the conversion, for programs that call it themselves. It is in a static library of
// its own, so that a program with a definition of its own, for example with another rounding, keeps it.

double ConvertmmToInches(double millimetres);

double ConvertmmToInches(double millimetres)
{
    return millimetres / 25.4;
}
