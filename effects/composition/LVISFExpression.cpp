#include "effects/composition/LVISFExpression.h"

#include <cmath>

namespace {

class Parser {
public:
    Parser(const QString& text, const QHash<QString, double>& variables) : s_(text), vars_(variables) {}

    std::optional<double> run(QString* error)
    {
        const double value = sum();
        skip();
        if (error_.isEmpty() && pos_ != s_.size()) error_ = QStringLiteral("unexpected '%1'").arg(s_.mid(pos_, 1));
        if (!error_.isEmpty()) {
            if (error) *error = error_;
            return std::nullopt;
        }
        return value;
    }

private:
    void skip()
    {
        while (pos_ < s_.size() && s_[pos_].isSpace()) ++pos_;
    }
    bool eat(QChar c)
    {
        skip();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    double sum()
    {
        double v = product();
        while (error_.isEmpty()) {
            if (eat('+')) v += product();
            else if (eat('-')) v -= product();
            else break;
        }
        return v;
    }
    double product()
    {
        double v = unary();
        while (error_.isEmpty()) {
            if (eat('*')) v *= unary();
            else if (eat('/')) v /= unary();
            else break;
        }
        return v;
    }
    double unary()
    {
        if (eat('-')) return -unary();
        if (eat('+')) return unary();
        return primary();
    }
    QString identifier()
    {
        const qsizetype start = pos_;
        while (pos_ < s_.size() && (s_[pos_].isLetterOrNumber() || s_[pos_] == '_')) ++pos_;
        return s_.mid(start, pos_ - start);
    }
    double primary()
    {
        skip();
        if (eat('(')) {
            const double v = sum();
            if (!eat(')')) fail(QStringLiteral("missing ')'"));
            return v;
        }
        if (eat('$')) {
            const QString name = identifier();
            const auto it = vars_.constFind(name);
            if (it == vars_.constEnd()) return fail(QStringLiteral("unknown variable $%1").arg(name));
            return it.value();
        }
        if (pos_ < s_.size() && (s_[pos_].isDigit() || s_[pos_] == '.')) {
            const qsizetype start = pos_;
            while (pos_ < s_.size() && (s_[pos_].isDigit() || s_[pos_] == '.')) ++pos_;
            if (pos_ < s_.size() && (s_[pos_] == 'e' || s_[pos_] == 'E')) {
                ++pos_;
                if (pos_ < s_.size() && (s_[pos_] == '-' || s_[pos_] == '+')) ++pos_;
                while (pos_ < s_.size() && s_[pos_].isDigit()) ++pos_;
            }
            bool ok = false;
            const double v = s_.mid(start, pos_ - start).toDouble(&ok);
            return ok ? v : fail(QStringLiteral("bad number"));
        }
        const QString name = identifier();
        if (name.isEmpty()) return fail(QStringLiteral("expected a value"));
        if (name == QLatin1String("pi") || name == QLatin1String("PI")) return M_PI;
        if (!eat('(')) return fail(QStringLiteral("unknown name %1").arg(name));
        std::vector<double> args;
        if (!eat(')')) {
            do args.push_back(sum());
            while (error_.isEmpty() && eat(','));
            if (!eat(')')) return fail(QStringLiteral("missing ')' after arguments of %1").arg(name));
        }
        return call(name, args);
    }
    double call(const QString& f, const std::vector<double>& a)
    {
        auto need = [&](size_t n) {
            if (a.size() != n) fail(QStringLiteral("%1 takes %2 argument(s)").arg(f).arg(n));
            return a.size() == n;
        };
        if (f == QLatin1String("max") && need(2)) return std::max(a[0], a[1]);
        if (f == QLatin1String("min") && need(2)) return std::min(a[0], a[1]);
        if (f == QLatin1String("pow") && need(2)) return std::pow(a[0], a[1]);
        if (f == QLatin1String("floor") && need(1)) return std::floor(a[0]);
        if (f == QLatin1String("ceil") && need(1)) return std::ceil(a[0]);
        if (f == QLatin1String("round") && need(1)) return std::round(a[0]);
        if (f == QLatin1String("abs") && need(1)) return std::fabs(a[0]);
        if (f == QLatin1String("sqrt") && need(1)) return std::sqrt(a[0]);
        if (error_.isEmpty()) fail(QStringLiteral("unknown function %1").arg(f));
        return 0;
    }
    double fail(const QString& message)
    {
        if (error_.isEmpty()) error_ = message;
        return 0;
    }

    const QString& s_;
    const QHash<QString, double>& vars_;
    qsizetype pos_ = 0;
    QString error_;
};

} // namespace

std::optional<double> LVISFEvaluate(const QString& expr, const QHash<QString, double>& variables, QString* error)
{
    return Parser(expr, variables).run(error);
}
