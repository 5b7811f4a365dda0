// Puts layers, frames and conversions together.
#include "picture.h"

#include "composition.h"
#include "convert.h"
#include "file.h"

namespace kvjpx_picture {

// What is decoded twice at the edges of strips, and layers that lie over each other.
constexpr double kWorkOfSample = 4;

struct Picture::State {
  State(const kvjpx::document& document, std::string_view bytes, const Request& asked)
      : file(document, bytes),
        request(asked),
        budget(kWorkOfSample * static_cast<double>(asked.sample_limit)) {
    request.effort.sample_limit = asked.sample_limit;
    if (asked.sample_limit != 0) request.effort.budget = &budget;
  }

  void open();
  void open_layer(uint64_t number, bool is_codestream_alone);
  void open_frame(size_t frame);
  void convert(const Format& wanted);

  File file;
  Request request;
  double budget;
  Notes notes;
  std::unique_ptr<CompositionPlan> plan;
  std::vector<uint32_t> milliseconds = {0};
  std::vector<Format> conversions;  // one after another
  std::unique_ptr<Rows> rows;
  const LayerRows* layer = nullptr;  // one of these
  const FrameRows* frame = nullptr;
};

namespace {

Error no_such(const std::string& what, uint64_t number, uint64_t count) {
  return Error(Error::Kind::kNoSuchPart, "there is no " + what + " " + std::to_string(number) +
                                             "; the file has " + std::to_string(count) +
                                             ", counted from 0");
}

}  // namespace

void Picture::State::open() {
  if (file.codestreams() == 0) {
    throw Error(Error::Kind::kUndecodable, "the file has no codestream");
  }
  if (request.codestream) {
    if (*request.codestream >= file.codestreams()) {
      throw no_such("codestream", *request.codestream, file.codestreams());
    }
    return open_layer(*request.codestream, true);
  }
  if (request.layer) {
    if (*request.layer >= file.layers()) throw no_such("layer", *request.layer, file.layers());
    return open_layer(*request.layer, false);
  }
  if (const auto composition = file.composition()) {
    plan = std::make_unique<CompositionPlan>(file, *composition, request.effort, notes);
    milliseconds.clear();
    for (const FramePlan& one : plan->frames()) milliseconds.push_back(one.milliseconds);
  }
  const uint64_t wanted = request.frame.value_or(0);
  if (wanted >= milliseconds.size()) throw no_such("frame", wanted, milliseconds.size());
  if (!plan) return open_layer(0, false);
  open_frame(wanted);
  const Format& format = rows->format();
  const size_t frames = request.all_frames ? milliseconds.size() : 1;
  check_size(format.width, format.height, format.channels(), frames, request.sample_limit);
}

void Picture::State::open_layer(uint64_t number, bool is_codestream_alone) {
  LayerRows::Part part;
  part.number = number;
  part.is_codestream_alone = is_codestream_alone;
  part.region = request.region;
  auto made = std::make_unique<LayerRows>(file, part, request.effort, notes);
  layer = made.get();
  rows = std::move(made);
  if (request.to_srgb || layer->needs_conversion()) convert(srgb_of(rows->format()));
}

void Picture::State::open_frame(size_t number) {
  auto made =
      std::make_unique<FrameRows>(file, *plan, number, request.region, request.effort, notes);
  frame = made.get();
  rows = std::move(made);
  if (request.to_srgb && conversions.empty()) convert(srgb_of(rows->format()));
}

void Picture::State::convert(const Format& wanted) {
  conversions.push_back(wanted);
  rows = std::make_unique<ConvertedRows>(std::move(rows), wanted);
}

Picture::Picture(const kvjpx::document& document, std::string_view bytes, const Request& request)
    : state_(std::make_unique<State>(document, bytes, request)) {
  state_->open();
}

Picture::~Picture() = default;
Picture::Picture(Picture&&) noexcept = default;

const Format& Picture::format() const { return state_->rows->format(); }

void Picture::convert(const Format& wanted) { state_->convert(wanted); }

void Picture::read_rows(uint32_t first, uint32_t count, uint16_t* out) {
  state_->rows->read(first, count, out);
}

uint32_t Picture::good_count(uint32_t first) const { return state_->rows->good_count(first); }

bool Picture::is_anything_there() const {
  return state_->frame != nullptr ? state_->frame->is_anything_there()
                                  : state_->layer->is_anything_there();
}

const std::vector<std::string>& Picture::notes() const { return state_->notes.all(); }

const std::vector<uint32_t>& Picture::frame_milliseconds() const { return state_->milliseconds; }

uint32_t Picture::repetitions() const { return state_->plan ? state_->plan->repetitions() : 1; }

void Picture::select_frame(size_t frame) {
  if (!state_->plan) return;
  const std::vector<Format> conversions = std::move(state_->conversions);
  state_->conversions.clear();
  const bool to_srgb = state_->request.to_srgb;
  state_->request.to_srgb = false;  // it is among the conversions
  state_->open_frame(frame);
  state_->request.to_srgb = to_srgb;
  for (const Format& wanted : conversions) state_->convert(wanted);
}

}  // namespace kvjpx_picture
