#include "config/CAcfgLines.h"

#include <cstring>

#include "HTFile.h"
#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"

CAConfigLines::CAConfigLines(const char *file, CAConfigObserver *observer)
    : name_(file), observer_(observer), file_(HTOpenForReading(file))
{
}

CAConfigLines::~CAConfigLines()
{
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

bool CAConfigLines::next()
{
    while (std::fgets(raw_.data(), static_cast<int>(raw_.size()), file_) != nullptr) {
        countLine();
        copy_ = raw_;
        HTConvertToSlash(copy_.data());
        count_ = parse_args(copy_.data(), words_.data(), &openQuote_);
        if (count_ > 0 && isDirective()) {
            standardize(words_[0]);
            return true;
        }
    }
    if (inBlock_ && observer_ != nullptr) {
        observer_->skipped(CASkip::Unclosed, name_, blockNumber_, "");
    }
    return false;
}

void CAConfigLines::countLine()
{
    number_ += lineEnded_ ? 1 : 0;
    lineEnded_ = std::strchr(raw_.data(), '\n') != nullptr;
}

bool CAConfigLines::isDirective()
{
    const bool alone = count_ == 1;
    if (inBlock_) {
        inBlock_ = !(alone && std::strcmp(words_[0], "}") == 0);
        return false;
    }
    if (std::strcmp(word(count_ - 1), "{") == 0) {
        inBlock_ = true;
        blockNumber_ = number_;
        return false;
    }
    if (alone && std::strcmp(words_[0], "}") != 0) {
        CATrace("Config...... insufficient parameters for directive %s\n", words_[0]);
        if (observer_ != nullptr) {
            observer_->skipped(CASkip::Alone, name_, number_, words_[0]);
        }
    }
    return !alone;
}

char *CAConfigLines::rest()
{
    char *at = raw_.data();
    while (HTIsBlank(*at)) {
        ++at;
    }
    while (*at != '\0' && !HTIsBlank(*at)) {
        ++at;
    }
    while (HTIsBlank(*at)) {
        ++at;
    }
    return at;
}
