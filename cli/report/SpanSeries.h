// Values by span of time. All series of a run have spans of one width, which doubles as the run goes on: each series
// joins its own in pairs when it is next used.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace netrove::cli {

template <class Value>
class SpanSeries {
public:
    // `joins`: how often the width has doubled.
    Value& at(std::size_t place, unsigned joins) {
        join(joins);
        if (place >= Values.size()) {
            Values.resize(place + 1);
        }
        return Values[place];
    }
    void add(const SpanSeries& other) {
        SpanSeries joined = other;
        joined.join(std::max(Joins, other.Joins));
        join(joined.Joins);
        Values.resize(std::max(Values.size(), joined.Values.size()));
        for (std::size_t i = 0; i < joined.Values.size(); ++i) {
            Values[i] += joined.Values[i];
        }
    }
    // So many of them, the last ones empty where nothing has come.
    std::vector<Value> values(std::size_t count, unsigned joins) const {
        SpanSeries joined = *this;
        joined.join(joins);
        joined.Values.resize(count);
        return joined.Values;
    }

private:
    void join(unsigned joins) {
        for (; Joins < joins; ++Joins) {
            for (std::size_t i = 0; i < Values.size(); i += 2) {
                Value sum = Values[i];
                if (i + 1 < Values.size()) {
                    sum += Values[i + 1];
                }
                Values[i / 2] = sum;
            }
            Values.resize((Values.size() + 1) / 2);
        }
    }

    unsigned Joins = 0;
    std::vector<Value> Values;
};

} // namespace netrove::cli
