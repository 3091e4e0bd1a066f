#pragma once
// Arithmetic in pass sizes ("$WIDTH/2", "max(floor($HEIGHT*$scale),1.0)").
#include <QHash>
#include <QString>

#include <optional>

// Evaluates expr with the variables given (named without their "$"); none when it does
// not parse or names an unknown variable or function.
std::optional<double> LVISFEvaluate(const QString& expr, const QHash<QString, double>& variables, QString* error = nullptr);
