// SPDX-License-Identifier: Apache-2.0
#include "run/job_progress.h"

#include <sys/resource.h>

#include "internal/process_memory.h"
#include "stage/messages.h"
#include "tqfd/StringConverter.h"

namespace tqtortho::host {
namespace {

std::string StageName(const std::string& text) {
  if (text == message::kEstimating) return "extent";
  if (text == message::kRectifying) return "rectify";
  if (text == message::kObscuring) return "hidden cells";
  if (text == message::kWeighting) return "weights";
  if (text == message::kMosaicking) return "mosaic masks";
  if (text == message::kUpdating) return "update orthos";
  return text;
}

}  // namespace

std::int64_t PeakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::int64_t>(usage.ru_maxrss) * 1024;
}

void JobProgress::Begin(const std::string& name) {
  End();
  open_ = true;
  report_.stages.push_back({name, 0});
  timer_.Start();
  observer_.BeginStage(name);
}

void JobProgress::End() {
  if (!open_) return;
  timer_.Stop();
  report_.stages.back().seconds = timer_.ElapsedSeconds();
  report_.stages.back().peakMemoryBytes = PeakMemory();
  tqimage::ReleaseFreeMemory();
  observer_.EndStage(report_.stages.back().seconds);
  open_ = false;
}

bool JobProgress::Update(double percent) {
  observer_.Progress(percent);
  return !Stopped();
}

bool JobProgress::Stopped() {
  if (observer_.StopRequested()) stopped_ = true;
  return stopped_;
}

int JobProgress::Callback(double percent, const char* words, void* user) {
  auto* self = static_cast<JobProgress*>(user);
  const std::string text = tqfd::StringConverter::GbkToUtf8(words == nullptr ? "" : words);
  if (text != self->message_) {
    self->message_ = text;
    if (text != message::kRectifying || !self->open_) self->Begin(StageName(text));
    if (text == message::kRectifying && self->onRectify) self->onRectify();
  }
  const bool go = self->Update(percent * self->share);
  // Rectification reports only when its first block is done; its time begins here.
  if (go && text == message::kEstimating && percent > 100 - 1e-6) {
    self->Begin(StageName(std::string(message::kRectifying)));
  }
  return go ? 1 : 0;
}

}  // namespace tqtortho::host
