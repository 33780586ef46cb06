#pragma once

#include <QList>

#include <algorithm>

// What every benchmark prints its figures with.
inline const char* verdict(bool met)
{
    return met ? "met" : "NOT MET";
}

// The middle of several runs (the upper middle of an even count).
inline double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}
