#pragma once
// Figures the benchmarks that print JSON share: percentiles of samples, rounded values and
// one compact JSON object a line.
#include <QJsonDocument>
#include <QJsonObject>
#include <QtGlobal>

#include <algorithm>
#include <cstdio>
#include <vector>

// The sample at that fraction of the sorted samples, nearest rank; 0 when there are none.
inline double lvPercentile(std::vector<double> samples, double fraction)
{
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(fraction * double(samples.size() - 1) + 0.5))];
}

inline double lvRound3(double value)
{
    return double(qRound64(value * 1000.0)) / 1000.0;
}

inline void lvPrintJson(const QJsonObject& object)
{
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}
