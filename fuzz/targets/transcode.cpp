// Fuzz target: KVUtils::Transcode(). The first two bytes choose the encodings, the rest is the
// text. Properties:
//   - a conversion from an encoding to itself returns the same text;
//   - a text converted from UTF-8 to an encoding of Unicode and back is unchanged;
//   - an unknown encoding leaves the text unchanged.
#include "fuzzing.h"
#include "host/kvutils.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const char* const unicode_encodings[] = {"UTF-16LE", "UTF-32BE", "UTF-8"};
  const char* const other_encodings[] = {"ISO-8859-1", "ISO-2022-JP", "ASCII", ""};
  const char* const unicode = unicode_encodings[input.Below(3)];
  const char* const other = other_encodings[input.Below(4)];
  const std::string text = input.Rest();

  Check(KVUtils::Transcode("no such encoding", "UTF-8", text) == text,
        "an unknown encoding leaves the text unchanged");
  Check(KVUtils::Transcode("UTF-8", "UTF-8", text) == text,
        "a conversion from an encoding to itself returns the same text");

  const std::string converted = KVUtils::Transcode("UTF-8", unicode, text);
  if (converted != text)
    Check(KVUtils::Transcode(unicode, "UTF-8", converted) == text,
          "a conversion to an encoding of Unicode and back returns the same text");

  // Not every text has a form in these encodings; if it has none, it is returned unchanged.
  Check(!KVUtils::Transcode("UTF-8", other, text).empty() || text.empty(),
        "a conversion never loses the whole text");
  return 0;
}
