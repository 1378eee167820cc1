// A change of a volume gathered in memory before anything is written.
//
// Every edit (allocating, scratching, writing members and data, relabelling)
// builds the new images of the tracks it touches in a StagedTracks. Nothing
// reaches the file until the whole change is known; then slots() goes to
// ChangeJournal::begin and writeAll() writes the images, so the change is
// complete or undone (journal/change_journal.h). Reads through a
// StagedTracks see the staged images, so a later step of a change builds on
// an earlier one.
//
// TrackBuilder lays out one track image: home address, record zero, the
// records one behind the other, the end marker, zeros up to the trailer.
// A track holds records while the end marker still begins by slot - 24 and
// record numbers stay below 256; one record's data is at most the device's
// track capacity.
//
// A change too large to hold runs twice, streamed. The first run plans:
// put() and putEmpty() only note their track, and TrackBuilders made for it
// place records without copying their bytes, so the change's tracks
// (slots()) are learnt without holding an image. After ChangeJournal::begin
// has saved those slots, the second run writes through: every whole image
// put() goes over its slot at once (trailer kept) and is not held, a track
// outside the saved slots is refused, and a track written so is read back
// from the file. Images changed in place (stage(), stageRecord()) are held
// and written by writeAll() as usual. A refusal in the second run leaves
// tracks written: the journal's undo takes them back.
//
// Thread safety: none; one thread per object and per file.
#ifndef CKDVOL_EDIT_STAGED_TRACKS_H_
#define CKDVOL_EDIT_STAGED_TRACKS_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "common/export.h"

namespace ckdvol {

class CKDVOL_EXPORT StagedTracks {
 public:
  // `file` is open (read-write for writeAll) and holds no changed track.
  explicit StagedTracks(EmulatedCKDfile& file);
  StagedTracks(const StagedTracks&) = delete;
  StagedTracks& operator=(const StagedTracks&) = delete;

  EmulatedCKDfile& file() { return file_; }
  uint32_t heads() const { return heads_; }
  uint32_t slotSize() const { return slot_; }
  // Tracks of the volume (cylinders * heads).
  uint32_t trackCount() const { return tracks_; }

  // The image of absolute track `track` (cylinder * heads + head): the staged
  // one, else the slot read from the file. Null with `error` naming the track
  // when it is off the volume or cannot be read. The pointer is valid until
  // the next call of any member.
  const unsigned char* image(uint32_t track, std::string& error);
  // The image of `track` to change in place: staged (copied from image())
  // on first use. Null with `error` as image().
  unsigned char* stage(uint32_t track, std::string& error);
  // Stages a whole new image (slotSize() bytes) for `track`. Its last 16
  // bytes do not matter: the slot's trailer on disk is kept when written.
  // False with `error` when the track is off the volume.
  bool put(uint32_t track, const unsigned char* image, std::string& error);
  // Stages the empty formatted track (home address and record zero only) for
  // `track`, made when it is read or written: a large allocation holds no
  // images in memory.
  bool putEmpty(uint32_t track, std::string& error);
  // The same as put(), taking over `image` (slotSize() bytes) without a copy.
  bool put(uint32_t track, std::vector<unsigned char>&& image, std::string& error);

  // Record number `record` of `track`, staged for a change in place of its
  // key and data (same lengths): the pointer to its key (its data when the
  // key length is 0), with the lengths in `keyLength` and `dataLength`. Null
  // with `error` when the track cannot be read or the record is not on it.
  unsigned char* stageRecord(uint32_t track, uint8_t record, uint32_t& keyLength, uint32_t& dataLength,
                             std::string& error);

  // Streaming (see above). planOnly() before anything is staged; the
  // slots given to writeThrough() are those the journal saved. False with
  // `error` when something is staged already.
  bool planOnly(std::string& error);
  bool writeThrough(const std::vector<uint64_t>& slots, std::string& error);
  bool planning() const { return mode_ == Mode::kPlan; }
  bool streaming() const { return mode_ != Mode::kHold; }
  // A buffer of slotSize() bytes for a new image: one that was written
  // through and is free again, else a new one (zeros).
  std::vector<unsigned char> buffer();

  bool staged(uint32_t track) const { return staged_.count(track) != 0 || passed_.count(track) != 0; }
  size_t size() const;
  // File offsets of the staged slots, in track order.
  std::vector<uint64_t> slots() const;
  // Writes every staged image over its slot, in track order, each with the
  // trailer its slot holds at that moment (the journal may have linked it to
  // a saved copy of a track version). Empty, or what failed.
  std::string writeAll();
  // Drops every staged image (and what planning or writing through noted).
  void clear() {
    staged_.clear();
    passed_.clear();
  }

  // "cylinder C head H" for messages.
  std::string trackText(uint32_t track) const;

 private:
  EmulatedCKDfile& file_;
  uint32_t heads_;
  uint32_t slot_;
  uint32_t tracks_;
  enum class Mode { kHold, kPlan, kWriteThrough };
  void makeEmpty(uint32_t track, unsigned char* out);
  std::string writeSlot(uint32_t track, const unsigned char* image);
  std::string writeRange(uint32_t track, const unsigned char* image, size_t from, size_t to);
  // A whole image for `track` while streaming: noted, or written through.
  bool pass(uint32_t track, const unsigned char* image, std::string& error);

  std::map<uint32_t, std::vector<unsigned char>> staged_;  // an empty vector: the empty formatted track
  std::vector<unsigned char> scratch_;
  Mode mode_ = Mode::kHold;
  std::set<uint32_t> passed_;   // tracks planned or written through, not held
  std::set<uint32_t> allowed_;  // writing through: the tracks the journal saved
  std::vector<unsigned char> spare_;
};

class CKDVOL_EXPORT TrackBuilder {
 public:
  // A new image of track (`cyl`, `head`) of `file`'s volume: home address
  // and record zero (no key, 8 data bytes of zero), no further records.
  TrackBuilder(EmulatedCKDfile& file, uint32_t cyl, uint32_t head);
  // The same, built in `buffer` (any former bytes; resized to the slot).
  // With `layoutOnly` records are placed but their keys and data not
  // copied: only the layout (fits, balance, record numbers) means anything,
  // as a planning run needs.
  TrackBuilder(EmulatedCKDfile& file, uint32_t cyl, uint32_t head, std::vector<unsigned char>&& buffer,
               bool layoutOnly);

  // Starts again from `image` (a slot of this track), keeping its home
  // address and its records up to and including record number `lastRecord`
  // (0: record zero only). False, and the builder unchanged, when the
  // image's records cannot be walked to that record in order.
  bool keep(const unsigned char* image, uint8_t lastRecord);

  // Whether one more record with these lengths fits.
  bool fits(uint32_t keyLength, uint32_t dataLength) const;
  // The largest data length that one more record with this key length can
  // have on this track (0 when none fits): the track balance.
  uint32_t balance(uint32_t keyLength = 0) const;
  // Appends the next record (number lastRecord() + 1) and returns its number.
  // Precondition: fits(keyLength, dataLength).
  uint8_t add(const unsigned char* key, uint32_t keyLength, const unsigned char* data, uint32_t dataLength);
  // Appends an end-of-file record (data length 0).
  uint8_t addEndOfFile() { return add(nullptr, 0, nullptr, 0); }
  uint8_t lastRecord() const { return last_; }
  // The image: the records, the end marker, zeros up to and including the
  // trailer (StagedTracks keeps the slot's own trailer).
  const std::vector<unsigned char>& image();
  // The image, handed over without a copy; the builder is spent (build no
  // further with it).
  std::vector<unsigned char> take();

 private:
  EmulatedCKDfile& file_;
  uint32_t cyl_;
  uint32_t head_;
  std::vector<unsigned char> image_;
  uint32_t end_ = 0;  // where the next count field (or the marker) begins
  uint8_t last_ = 0;
  bool layoutOnly_ = false;
};

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_STAGED_TRACKS_H_
