#include "vexa/parser/parse_failure.h"

#include <vector>

#include "vexa/parser/parse_limits.h"
#include "vexa/parser/tokenizer.h"

namespace vexa_parser {

namespace {

// Every piece a record holds, for the moves that apply to all of them.
template <class F>
void ForEachPiece(FailureRecord& record, F move)
{
    move(record.at);
    move(record.other);
    for (CallFrame& frame : record.calls)
        move(frame.call);
}

}  // namespace

FailureRecord& Record(FailureSlot& slot, int code, vexa::ParseProblem problem, int position, int length,
                      std::wstring detail)
{
    slot.reset(new FailureRecord());
    slot->problem = problem;
    slot->code = code;
    slot->at.position = position;
    slot->at.length = length;
    slot->detail = std::move(detail);
    return *slot;
}

void Fail(FailureSlot& slot, int code, vexa::ParseProblem problem, int position, int length, std::wstring detail)
{
    Record(slot, code, problem, position, length, std::move(detail));
    throw code;
}

FailureRecord& RecordOrDefault(FailureSlot& slot, int position)
{
    if (!slot) {
        slot.reset(new FailureRecord());
        slot->at.position = position;
        slot->at.length = 1;
    }
    return *slot;
}

void MapToGivenText(FailureRecord& record, const wchar_t* given)
{
    // The same pre-processing that made the level's text, this time noting
    // where each character came from. Only a failed parse gets here.
    std::vector<wchar_t> out(vexa_parser::kWorkLength);
    std::vector<int> raw(vexa_parser::kWorkLength);
    Tokenizer::PreParse(given, out.data(), raw.data());
    const int length = static_cast<int>(Tokenizer::lengthAfterTrimmingTailWhite(out.data(), true));
    // Just past the last character kept: where "the end of the text" is.
    const int end = length > 0 ? raw[length - 1] + 1 : 0;
    auto startOf = [&](int p) { return p >= 0 && p < length ? raw[p] : end; };
    ForEachPiece(record, [&](Piece& piece) {
        if (piece.position < 0)
            return;
        const int last = piece.position + piece.length - 1;
        const int start = startOf(piece.position);
        const int stop = piece.length <= 0 ? start : (last < length ? raw[last] + 1 : end);
        piece.position = start;
        piece.length = stop > start ? stop - start : 0;
    });
    record.preprocessed = false;
}

void ShiftPieces(FailureRecord& record, int offset)
{
    ForEachPiece(record, [offset](Piece& piece) {
        if (piece.position >= 0)
            piece.position += offset;
    });
    record.preprocessed = true;
}

}  // namespace vexa_parser
