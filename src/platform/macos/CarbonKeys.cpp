#include "platform/macos/CarbonKeys.h"

#include <algorithm>
#include <array>

namespace quellora {
namespace {

struct KeyEntry
{
    Qt::Key key;
    quint32 code;
};

constexpr std::array<KeyEntry, 47> keyTable{{
    {Qt::Key_A, 0},          {Qt::Key_S, 1},           {Qt::Key_D, 2},
    {Qt::Key_F, 3},          {Qt::Key_H, 4},           {Qt::Key_G, 5},
    {Qt::Key_Z, 6},          {Qt::Key_X, 7},           {Qt::Key_C, 8},
    {Qt::Key_V, 9},          {Qt::Key_B, 11},          {Qt::Key_Q, 12},
    {Qt::Key_W, 13},         {Qt::Key_E, 14},          {Qt::Key_R, 15},
    {Qt::Key_Y, 16},         {Qt::Key_T, 17},          {Qt::Key_1, 18},
    {Qt::Key_2, 19},         {Qt::Key_3, 20},          {Qt::Key_4, 21},
    {Qt::Key_6, 22},         {Qt::Key_5, 23},          {Qt::Key_Equal, 24},
    {Qt::Key_9, 25},         {Qt::Key_7, 26},          {Qt::Key_Minus, 27},
    {Qt::Key_8, 28},         {Qt::Key_0, 29},          {Qt::Key_BracketRight, 30},
    {Qt::Key_O, 31},         {Qt::Key_U, 32},          {Qt::Key_BracketLeft, 33},
    {Qt::Key_I, 34},         {Qt::Key_P, 35},          {Qt::Key_L, 37},
    {Qt::Key_J, 38},         {Qt::Key_Apostrophe, 39}, {Qt::Key_K, 40},
    {Qt::Key_Semicolon, 41}, {Qt::Key_Backslash, 42},  {Qt::Key_Comma, 43},
    {Qt::Key_Slash, 44},     {Qt::Key_N, 45},          {Qt::Key_M, 46},
    {Qt::Key_Period, 47},    {Qt::Key_QuoteLeft, 50},
}};

} // namespace

std::optional<quint32> CarbonKeys::keyCode(Qt::Key key)
{
    const auto *found = std::find_if(keyTable.begin(), keyTable.end(),
                                     [key](const KeyEntry &entry) { return entry.key == key; });
    if (found == keyTable.end())
        return std::nullopt;
    return found->code;
}

quint32 CarbonKeys::modifierFlags(Qt::KeyboardModifiers modifiers)
{
    quint32 flags = 0;
    if (modifiers & Qt::MetaModifier)
        flags |= command;
    if (modifiers & Qt::ShiftModifier)
        flags |= shift;
    if (modifiers & Qt::AltModifier)
        flags |= option;
    if (modifiers & Qt::ControlModifier)
        flags |= control;
    return flags;
}

} // namespace quellora
