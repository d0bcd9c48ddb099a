// Texts over a picture, and where the block code lies. A dot of a character is one luma cell, a
// character one macroblock wide.
#include <algorithm>

#include "sdk/video/scene.h"

namespace sim {

namespace {

constexpr int CODE_COLUMNS = 8;
constexpr int CODE_ROWS = 2;
constexpr int LINE_CELLS = 6;  // from one line to the next
constexpr int FIRST_LINE = 1;  // in cells
constexpr int TEXT_ROWS_FULL = 5;
constexpr int TEXT_ROWS_COUNTERS = 3;

// 3 x 5 dots, row by row.
struct Glyph {
    char character;
    char dots[16];
};
constexpr Glyph FONT[] = {
    {'0', "#### ## ## ####"}, {'1', " # ##  #  # ###"}, {'2', "###  #####  ###"},
    {'3', "###  ####  ####"}, {'4', "# ## ####  #  #"}, {'5', "####  ###  ####"},
    {'6', "####  #### ####"}, {'7', "###  #  #  #  #"}, {'8', "#### ##### ####"},
    {'9', "#### ####  ####"}, {':', "    #     #    "}, {'A', " # # ##### ## #"},
    {'C', "####  #  #  ###"}, {'D', "## # ## ## ### "}, {'E', "####  ####  ###"},
    {'G', "####  # ## ####"}, {'H', "# ## ##### ## #"}, {'I', "### #  #  # ###"},
    {'J', "  #  #  ## ####"}, {'L', "#  #  #  #  ###"}, {'M', "# ######## ## #"},
    {'N', "#### ## ## ## #"}, {'P', "#### #####  #  "}, {'R', "## # ### # ## #"},
    {'T', "### #  #  #  # "}, {'U', "# ## ## ## ####"}, {'V', "# ## ## ## # # "},
};

// The dots of every character, 4 bits a row, the left one lowest; a macroblock's mask is 4 rows of
// it.
struct Dots {
    uint32_t of[128] = {};
    constexpr Dots() {
        for (const Glyph& glyph : FONT)
            for (int dot = 0; dot < 15; ++dot)
                if (glyph.dots[dot] == '#')
                    of[static_cast<int>(glyph.character)] |= 1u << (dot / 3 * 4 + dot % 3);
    }
};
constexpr Dots DOTS;

constexpr const char* STREAM_NAMES[] = {"MAIN", "DUAL", "JPEG", "PREV", "3RD", "4TH"};

struct Lines {
    char text[3][Overlay::MOST_COLUMNS];
    int count = 0;

    char* add() {
        char* line = text[count++];
        std::fill_n(line, Overlay::MOST_COLUMNS, ' ');
        return line;
    }
};

void put_number(char* out, uint64_t number, int digits) {
    for (; digits > 0; number /= 10) out[--digits] = static_cast<char>('0' + number % 10);
}

void write_label(const Scene& scene, char* out) {
    out[0] = 'C';
    out[1] = 'H';
    put_number(out + 2, uint64_t{scene.channel} + 1, 2);
    const char* name = STREAM_NAMES[std::min<size_t>(scene.stream, std::size(STREAM_NAMES) - 1)];
    for (int i = 0; name[i] != 0; ++i) out[5 + i] = name[i];
}

// hh:mm:ss:ff
void write_timecode(uint32_t number, uint32_t rate, char* out) {
    const uint32_t seconds = number / rate;
    put_number(out, seconds / 3600 % 100, 2);
    put_number(out + 3, seconds / 60 % 60, 2);
    put_number(out + 6, seconds % 60, 2);
    put_number(out + 9, number % rate, 2);
    out[2] = out[5] = out[8] = ':';
}

// What macroblock row `row` shows of a character whose line begins at `line_cell`.
uint32_t part(char character, int line_cell, int row) {
    const uint32_t dots = DOTS.of[static_cast<int>(character)];
    const int below = 4 * (line_cell - 4 * row);  // bits
    if (below >= 16 || below <= -20) return 0;
    return (below >= 0 ? dots << below : dots >> -below) & 0xFFFF;
}

// The mask of 2 x 2 squares of the block code.
Overlay::Mask code_mask(uint64_t bits, int row, int column) {
    uint32_t mask = 0;
    for (int down = 0; down < 2; ++down) {
        for (int right = 0; right < 2; ++right) {
            const int square = 16 * (2 * row + down) + 2 * column + right;
            if (bits >> (63 - square) & 1) mask |= 0x33u << (8 * down + 2 * right);
        }
    }
    return static_cast<Overlay::Mask>(mask);
}

}  // namespace

Overlay::Overlay(const Scene& scene) : m_scene(scene) {
    if (!has_overlay(scene.size)) return;
    if (scene.text == Text::full) m_text_rows = TEXT_ROWS_FULL;
    if (scene.text == Text::counters) m_text_rows = TEXT_ROWS_COUNTERS;
    m_code_row = scene.size.height / MACROBLOCK - CODE_ROWS;
    m_size = m_text_rows * MOST_COLUMNS + CODE_ROWS * CODE_COLUMNS;
}

int Overlay::columns(int row) const {
    if (row >= 0 && row < m_text_rows) return MOST_COLUMNS;
    const bool code = m_code_row >= 0 && row >= m_code_row && row < m_code_row + CODE_ROWS;
    return code ? CODE_COLUMNS : 0;
}

void Overlay::draw(uint32_t number, Mask* out) const {
    if (m_size == 0) return;
    Lines lines;
    if (m_scene.text == Text::full) write_label(m_scene, lines.add());
    if (m_text_rows > 0) {
        put_number(lines.add(), number, 10);
        write_timecode(number, std::max(m_scene.rate, 1u), lines.add());
    }
    for (int row = 0; row < m_text_rows; ++row) {
        // A row shows the end of one line and the start of the next.
        const int last = std::min((4 * row + 3 - FIRST_LINE) / LINE_CELLS, lines.count - 1);
        const int first = std::max((4 * row - FIRST_LINE - 4) / LINE_CELLS, 0);
        for (int column = 0; column < MOST_COLUMNS; ++column) {
            uint32_t mask = 0;
            for (int line = first; line <= last; ++line)
                mask |= part(lines.text[line][column], FIRST_LINE + LINE_CELLS * line, row);
            *out++ = static_cast<Mask>(mask);
        }
    }
    const uint64_t bits = block_code_bits({m_scene.stream, m_scene.channel, number});
    for (int row = 0; row < CODE_ROWS; ++row)
        for (int column = 0; column < CODE_COLUMNS; ++column) *out++ = code_mask(bits, row, column);
}

}  // namespace sim
