// The threshold histogram on every counting path this build can run: each must
// stop both threshold scans at the same bins as a plain count, so that the
// thresholds are bit-identical whichever path a processor takes.

#include "engine/IntensityHistogram.h"

#include <QtTest>

#include <functional>
#include <random>

using namespace Halcyra::Nereon::Visualisation;
using Path = IntensityHistogram::Path;

Q_DECLARE_METATYPE(IntensityHistogram::Path)

namespace {

using Bytes = std::vector<std::uint8_t>;

struct ScanStops
{
    int low = -1; ///< first bin from 0 upwards where the running sum reaches the target, -1 for none
    int high = -1; ///< the same from 255 down to 1
};

template <typename Counts> ScanStops scan(const Counts& counts, std::int64_t target)
{
    ScanStops stops;
    std::int64_t sum = 0;
    for (int bin = 0; bin <= 255 && stops.low < 0; ++bin)
        if ((sum += counts[std::size_t(bin)]) >= target)
            stops.low = bin;
    sum = 0;
    for (int bin = 255; bin >= 1 && stops.high < 0; --bin)
        if ((sum += counts[std::size_t(bin)]) >= target)
            stops.high = bin;
    return stops;
}

// Mostly the byte middle, with a share of bytes drawn from ends.
Bytes mixture(std::size_t size, std::uint8_t middle, double endShare, std::vector<std::uint8_t> ends,
    std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    Bytes data(size, middle);
    for (std::uint8_t& v : data)
        if (unit(random) < endShare)
            v = ends[random() % ends.size()];
    return data;
}

Bytes randomBytes(std::size_t size, std::uint32_t seed)
{
    std::mt19937 random(seed);
    Bytes data(size);
    for (std::uint8_t& v : data)
        v = std::uint8_t(random());
    return data;
}

} // namespace

class TestEngineHistogram : public QObject
{
    Q_OBJECT

private slots:
    void buildHasItsPaths()
    {
        const std::vector<Path> paths = IntensityHistogram::availablePaths();
        QCOMPARE(paths.front(), Path::Portable);
        QCOMPARE(paths.back(), IntensityHistogram::nativePath());
#if defined(__x86_64__)
        // Every x86-64 processor has SSE2: a build there must use it.
        QCOMPARE(IntensityHistogram::nativePath(), Path::Sse2);
#endif
    }

    void matchesPlainCount_data()
    {
        QTest::addColumn<Path>("path");
        QTest::addColumn<Bytes>("data");
        QTest::addColumn<float>("clamp");

        struct Case
        {
            const char* name;
            std::function<Bytes()> data;
            float clamp;
        };
        const std::vector<Case> cases {
            { "empty", [] { return Bytes(); }, 0.01f },
            { "tail only",
                [] {
                    return Bytes { 0, 3, 250, 0, 9, 255, 1 };
                },
                0.3f },
            { "all zero", [] { return Bytes(65536, 0); }, 0.01f },
            // Sizes that leave a tail after whole vectors and words.
            { "dark sea",
                [] {
                    return mixture(509 * 515, 0, 0.03, { 1, 2, 7, 90, 200, 255 }, 1);
                },
                0.02f },
            { "dark sea, clamp 0",
                [] {
                    return mixture(509 * 515, 0, 0.03, { 1, 200 }, 2);
                },
                0.0f },
            // Every 61st byte 0 and the rest 128: a sparse look promises zeros the frame lacks.
            { "misleading sample",
                [] {
                    Bytes data(512 * 515, 128);
                    for (std::size_t i = 0; i < data.size(); i += 61)
                        data[i] = 0;
                    return data;
                },
                0.02f },
            // Lane compares around the sign bit of a byte: 127, 128, 129 on either side of the ends.
            { "ends across the sign bit",
                [] {
                    return mixture(300 * 257, 128, 0.04, { 1, 127, 129, 254, 255 }, 3);
                },
                0.01f },
            { "ends at both extremes",
                [] {
                    return mixture(256 * 500, 100, 0.02, { 1, 255 }, 4);
                },
                0.01f },
            // Too many bytes in the ends: everything is counted.
            { "uniform noise", [] { return randomBytes(512 * 1024 + 5, 5); }, 0.25f },
            { "negative clamp", [] { return randomBytes(40000, 6); }, -0.5f },
            { "clamp above one", [] { return randomBytes(40000, 7); }, 1.5f },
        };
        for (const Path path : IntensityHistogram::availablePaths())
            for (const Case& c : cases)
                QTest::addRow("%s: %s", IntensityHistogram::getName(path), c.name)
                    << path << c.data() << c.clamp;
    }

    void matchesPlainCount()
    {
        QFETCH(Path, path);
        QFETCH(Bytes, data);
        QFETCH(float, clamp);

        std::array<std::int64_t, 256> reference {};
        for (const std::uint8_t v : data)
            ++reference[v];
        const std::int64_t target = IntensityHistogram::thresholdTarget(data.size(), clamp);
        const ScanStops expected = scan(reference, target);

        for (const bool copying : { true, false }) {
            Bytes copy(data.size(), 0xa5);
            const IntensityHistogram::Counts& counts = IntensityHistogram::count(
                data.data(), copying ? copy.data() : nullptr, data.size(), target, path);

            const ScanStops stops = scan(counts, target);
            QCOMPARE(stops.low, expected.low);
            QCOMPARE(stops.high, expected.high);
            // Every bin a scan passes holds its exact count, where counts can matter at all.
            const bool countsMatter = target > 0 && target <= std::int64_t(data.size());
            for (int bin = 0; countsMatter && bin <= expected.low; ++bin)
                QCOMPARE(std::int64_t(counts[std::size_t(bin)]), reference[std::size_t(bin)]);
            for (int bin = 255; countsMatter && expected.high > 0 && bin >= expected.high; --bin)
                QCOMPARE(std::int64_t(counts[std::size_t(bin)]), reference[std::size_t(bin)]);
            if (copying)
                QVERIFY(copy == data);
        }
    }
};

QTEST_GUILESS_MAIN(TestEngineHistogram)
#include "tst_engine_histogram.moc"
