#pragma once

#include "TernwickNereonAnalysisExport.h"

#include "analysis/FishCounter.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace Halcyra::Nereon::Analysis {

struct RecordingCount;

/**
 * The counting results as CSV files (comma-separated, one header line, UTF-8, "\n"
 * line ends). Frames are positions in the recording from 0, times UTC in ISO 8601
 * with microseconds, bearings degrees, lengths and ranges metres, speeds m/s,
 * directions `up` or `down`.
 *
 * Every file is written under a temporary name beside it and renamed once whole,
 * so a reader never sees half a file; new files get the umask's permissions.
 */
class TERNWICK_NEREON_ANALYSIS_EXPORT FishCsv
{
public:
    /// fish_id,first_frame,last_frame,first_time,last_time,direction,length_m,range_m,bearing_deg,speed_m_s,detections
    static QString fishHeader();
    /// fish_id,frame,time,range_m,bearing_deg,length_m,detected
    static QString tracksHeader();
    /// file,start_time,end_time,frames,fish_up,fish_down,fish_total,damage_offset,error
    static QString summaryHeader();

    /// One line of fish.csv, without its end (likewise the rows below).
    static QString fishRow(const FishRecord& fish);
    /// One line of tracks.csv.
    static QString trackRow(const TrackPoint& point);
    /// One line of summary.csv.
    static QString summaryRow(const RecordingCount& count);

    /// fish.csv of `fish`. False, with `error` naming the file, when it cannot be written.
    static bool writeFish(const QString& path, const std::vector<FishRecord>& fish, QString* error = nullptr);
    /// tracks.csv of `points`.
    static bool writeTracks(
        const QString& path, const std::vector<TrackPoint>& points, QString* error = nullptr);
    /// summary.csv, one row per recording.
    static bool writeSummary(
        const QString& path, const std::vector<RecordingCount>& counts, QString* error = nullptr);

    /// µs since 1970 as 2024-05-01T12:00:00.123456Z.
    static QString formatTime(std::int64_t microseconds);
    /// `text` as one CSV field: quoted where it holds a comma, quote or line end.
    static QString quote(const QString& text);
};

} // namespace Halcyra::Nereon::Analysis
