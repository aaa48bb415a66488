// Entity and layer colours: by layer, by block, an index of the 256-colour
// palette, or a true (RGB) colour.
#pragma once

#include <cstdint>

#include "kora/export.h"

class KORA_API KoCmColor {
public:
    enum ColorMethod : uint8_t { kByLayer, kByBlock, kByACI, kByColor, kForeground };

    KoCmColor() = default;
    static KoCmColor byLayer() { return KoCmColor(); }
    static KoCmColor byBlock() { KoCmColor c; c.m_method = kByBlock; return c; }
    static KoCmColor fromIndex(int index);
    static KoCmColor fromRGB(uint8_t red, uint8_t green, uint8_t blue);

    ColorMethod colorMethod() const { return m_method; }
    bool isByLayer() const { return m_method == kByLayer; }
    bool isByBlock() const { return m_method == kByBlock; }
    bool isByACI() const { return m_method == kByACI; }
    bool isByColor() const { return m_method == kByColor; }
    void setColorIndex(int index) { *this = fromIndex(index); }
    void setRGB(uint8_t red, uint8_t green, uint8_t blue) { *this = fromRGB(red, green, blue); }
    // The palette index: 0 by block, 256 by layer, 1..255 a palette colour.
    // A true colour answers the index it was read or set with (7 if none).
    int colorIndex() const;
    uint8_t red() const { return static_cast<uint8_t>(m_rgb >> 16); }
    uint8_t green() const { return static_cast<uint8_t>(m_rgb >> 8); }
    uint8_t blue() const { return static_cast<uint8_t>(m_rgb); }
    // 0x00RRGGBB, meaningful for true colours.
    uint32_t rgb() const { return m_rgb; }
    // Keeps the palette index that accompanies a true colour in files.
    void setNearestIndex(int index) { m_index = static_cast<int16_t>(index); }

    friend bool operator==(const KoCmColor&, const KoCmColor&) = default;

private:
    ColorMethod m_method = kByLayer;
    int16_t m_index = 256;
    uint32_t m_rgb = 0;
};

// The RGB value (0x00RRGGBB) of palette index 1..255 in the standard
// drawing palette, the colours the indexes show with everywhere; 0 for an
// index outside the palette (by block, by layer).
KORA_API uint32_t kocmPaletteRgb(int index);
