// Every constant of the refiner, the tracker and the scene states, with what it trades. Times are seconds and areas
// shares of the frame, so that they hold at any rate and size; levels are those of 8 bits. What a user may choose is in
// FilterSettings (track_filter.h); how the values were found stands in docs/accuracy.md.
#pragma once

namespace fleifeisa::host {

// Background: faster forgives what was learned wrongly, slower keeps what stands still in sight.
constexpr int kLearnSamples = 25;         ///< frames kept for the median; more costs memory (one frame each)
constexpr int kLearnSteps = 21;           ///< every (learning / this)-th frame is kept
constexpr int kRowPhases = 4;             ///< one row in so many is brought up to date a frame: cost against age
constexpr double kFollowOutside = 12;     ///< levels a second, outside of accepted boxes
constexpr double kFollowInside = 0.9;     ///< inside: a thing of 30 levels melts into the background in half a minute
constexpr double kHealRate = 60;          ///< levels a second where the background is known to be wrong
constexpr double kChangedHealRate = 120;  ///< and everywhere after a change of light
constexpr double kLongestStep = 1.0;      ///< seconds; a longer pause between frames counts as this

// Noise: the threshold of a pixel is kNoiseFactor times its usual difference within these limits.
constexpr double kNoiseStart = 1.3;           ///< times the mean of the lower three quarters of the learned differences
constexpr double kNoiseSeconds = 8;           ///< longer forgets wind later, shorter learns slow people as noise
constexpr int kNoiseDown = 8, kNoiseUp = 16;  ///< levels: one frame's difference counts for no more
constexpr int kNoiseFactor = 5;
constexpr int kLeastThreshold = 24;  ///< lower finds more of dark clothes on dark ground, and more shadow
constexpr int kMostThreshold = 72;

// Where to look: around an analyzer box (its cells are coarse: heads and feet lie outside), and where tracks go.
constexpr double kGrowBoxX = 0.5, kGrowBoxY = 0.75;      ///< of its width and height, on each side
constexpr double kGrowTrackX = 0.3, kGrowTrackY = 0.25;  ///< of the prediction's
constexpr double kUnsupportedSeconds = 14;  ///< a track is looked for that long without the analyzer's support
constexpr double kUnsupportedUnmoved = 4;   ///< and one that never moved from where it appeared
constexpr double kLeastComponent = 1.8e-4;  ///< of the frame: 20 pixels at 384x288
constexpr double kLeastSupport = 0.1;       ///< of a component's pixels lie in analyzer boxes or predictions
constexpr int kMostBlobs = 256;             ///< the largest are kept

// Ghosts and light.
constexpr double kGhostRatio = 2, kGhostOffset = 4;  ///< edges in the background against edges in the frame
constexpr double kKnownOverlap = 0.4;                ///< with a track that came from elsewhere: neither ghost nor light
constexpr double kHealingSure = 0.25;      ///< seconds of ghost or light without a pause: it is believed, and ...
constexpr double kHealingKept = 1.0;       ///< ... its place heals on for so long; longer hides who walks in
constexpr int kMostHealing = 64;           ///< such places a camera
constexpr int kLightPixels = 30;           ///< of a component's inside, at 384x288, to compare texture at all
constexpr double kLightStructure = 144;    ///< least mean squared Sobel of the background
constexpr double kLightCorrelation = 0.7;  ///< the same texture, brighter or darker: light

// Pieces.
constexpr double kJoinOverlap = 0.5;   ///< of the narrower one, in x
constexpr double kJoinGap = 0.15;      ///< of the joined height, in y
constexpr double kLyingAspect = 0.95;  ///< width over height of a piece that is no part of a standing person
constexpr double kSplitAspect = 1.2;   ///< least height over width of each part of two people
constexpr double kSplitValley = 0.7;   ///< of the lower of the two summits beside it

// Tracks.
constexpr double kOverlapConfirmed = 0.2;  ///< least intersection over union, prediction and blob
constexpr double kOverlapTentative = 0.1;
constexpr double kReachTentative = 0.8;    ///< of its size: how far a young track may have gone
constexpr double kReach = 0.6;             ///< of the track's size: distance of the second pass
constexpr double kReachGrowth = 0.8;       ///< of its size, for each second missed
constexpr double kSizeRatio = 3;           ///< of areas, at most, in the second pass
constexpr double kWholeInside = 0.7;       ///< of a missed track lies in a blob that is nobody's: it was a part of that
constexpr double kWholeArea = 8;           ///< times the part's, at most
constexpr double kPositionSeconds = 0.05;  ///< time constants of position and size: longer is calmer and later
constexpr double kSizeSeconds = 0.05;
constexpr double kOddSizeSeconds = 0.3;  ///< of size, where a sighting's differs by more than
constexpr double kUsualSize = 0.3;       ///< of the track's
constexpr double kOddSeconds = 0.4;      ///< for so long at most; then that is its size
constexpr double kGrownUp = 1.0;         ///< a younger track's size follows at once: it may be coming in
constexpr double kBirthSeconds = 0.3;    ///< later is surer; what is seen shorter is no track
constexpr int kBirthSightings = 3;
constexpr double kYoungMiss = 0.12;
constexpr double kShown = 0.2;      ///< a prediction is shown for so long
constexpr double kKept = 2.0;       ///< and a lost track is kept; longer costs wrong reunions
constexpr double kLeftAfter = 0.4;  ///< at the edge of the picture it is not waited for so long
constexpr int kMostTracks = 256;    ///< living and young; beyond it nothing is born

// Groups: one blob, several tracks.
constexpr double kGroupInside = 0.5;      ///< of a missed track's prediction lies in the blob
constexpr double kGroupLarger = 1.3;      ///< times the owner's area, at least
constexpr double kHiddenSeconds = 2;      ///< a member is kept for so long in a blob that is no larger than another
constexpr double kPieceInside = 0.6;      ///< of a leftover piece lies in a track's prediction: it is a part of it
constexpr double kPieceArea = 1.0;        ///< times the track's area at most, with the piece
constexpr double kInside = 0.7;           ///< of a track lies in a larger one's place ...
constexpr double kInsideArea = 0.5;       ///< ... of which it is no more than this share ...
constexpr double kInsideSeconds = 0.5;    ///< ... for so long: it was always a part of it
constexpr double kPieceWidth = 1.2;       ///< times the wider part's width at most: legs and body, no two people
constexpr double kApartOverlap = 0.25;    ///< of the narrower one, in x: less, and they are two things for good
constexpr double kApartGap = 0.45;        ///< of the whole height, in y: more, and they are
constexpr double kStackedOverlapY = 0.3;  ///< of the lower one, at most: legs and upper body, no two people

// Standing still.
constexpr double kRestSeconds = 3;      ///< at rest for so long: stopped
constexpr double kEdgeBirth = 0.2;      ///< overlap with its place of birth at the edge, at most: it came in
constexpr double kRestDistance = 0.15;  ///< of its size, that is no movement
constexpr double kMovedDistance = 0.4;  ///< of its size: it goes on
constexpr double kMeltsAfter = 25;    ///< seconds of standing: least threshold over kFollowInside; then a sighting ...
constexpr double kMeltsInside = 0.9;  ///< ... of which this share lies in a stopped track's place ...
constexpr double kMeltsArea = 0.8;    ///< ... and which is smaller than this share of it is what is left in sight
constexpr double kPlaceSeconds = 1;   ///< between two looks at its place
constexpr int kMostPlaces = 32;       ///< watched a camera; the oldest goes first
constexpr double kLongestStop = 24 * 3600.0;
constexpr double kUnknownPlace = 300;  ///< seconds of looking like neither: lost
constexpr int kLeastContrast = 8;      ///< between place before and with the thing, for the patches to decide
constexpr int kPlaceLevels = 14;       ///< mean difference up to which a place looks like a patch

// The scene as a whole.
constexpr double kChangedBoxes = 0.3;               ///< sum of the analyzer's boxes, of the picture
constexpr double kChangedPixels = 0.6;              ///< of the sampled pixels differ
constexpr double kAllPixels = 0.85;                 ///< do: no thing is that large, whatever the analyzer says
constexpr double kLitPixels = 0.35;                 ///< do, and the picture still has its texture: the same, and no box
constexpr int kChangedTexture = 9;                  ///< least mean square between neighbouring samples, levels
constexpr double kChangedSeconds = 0.4;             ///< of healing after each frame that shows the change
constexpr double kChangedLongest = 60;              ///< then watching goes on
constexpr int kSampleStep = 4;                      ///< pixels between samples of the whole picture, both ways
constexpr int kBlackLevel = 24, kWhiteLevel = 235;  ///< mean luma, with next to no spread
constexpr int kBlindSpread = 3;                     ///< mean absolute deviation of luma: no structure
constexpr double kBlindSeconds = 1;                 ///< of it before it is said, and of sight before it is taken back
constexpr double kFrozenSeconds = 60;               ///< without one changed sample

}  // namespace fleifeisa::host
