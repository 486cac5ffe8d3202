// KVUtils::Transcode. The first byte chooses the encodings, whose names are otherwise the input's.
// Properties:
//   - between an encoding and itself a text comes back as it is;
//   - what is converted from UTF-8 to a wider encoding and back is the text;
//   - an unknown name changes nothing.
#include "fuzzing.h"
#include "host/kvutils.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const char* const wide[] = {"UTF-16LE", "UTF-32BE", "UTF-8"};
  const char* const narrow[] = {"ISO-8859-1", "ISO-2022-JP", "ASCII", ""};
  const char* const wider = wide[input.Below(3)];
  const char* const narrower = narrow[input.Below(4)];
  const std::string text = input.Rest();

  Check(KVUtils::Transcode("no such encoding", "UTF-8", text) == text, "nothing is changed");
  Check(KVUtils::Transcode("UTF-8", "UTF-8", text) == text, "the same encoding is the same text");

  const std::string widened = KVUtils::Transcode("UTF-8", wider, text);
  if (widened != text)
    Check(KVUtils::Transcode(wider, "UTF-8", widened) == text, "there and back is the text");

  // Which of these can be converted the encodings know; each is either converted or unchanged.
  const std::string converted = KVUtils::Transcode("UTF-8", narrower, text);
  Check(!converted.empty() || text.empty(), "no text is lost");
  return 0;
}
