/*{
    "DESCRIPTION": "The time of day as digital clock digits.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Overlay"],
    "CHANGES_ONLY": {"X": "min(max(($X_Position * 0.5 + 0.5) * $WIDTH, 0), max($WIDTH - $height * $HEIGHT * (2.8 + 1.5 * $showSeconds), 0))",
                     "Y": "min(max(($Y_Position * 0.5 + 0.5) * $HEIGHT, 0), max($HEIGHT - $height * $HEIGHT * 1.2, 0))",
                     "WIDTH": "$height * $HEIGHT * (2.8 + 1.5 * $showSeconds)",
                     "HEIGHT": "$height * $HEIGHT * 1.2"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "height", "LABEL": "Size", "TYPE": "float", "DEFAULT": 0.08, "MIN": 0.02, "MAX": 0.5},
        {"NAME": "showSeconds", "LABEL": "Show seconds", "TYPE": "bool", "DEFAULT": true},
        {"NAME": "twentyFourHour", "LABEL": "Use 24-hour clock", "TYPE": "bool", "DEFAULT": true},
        {"NAME": "digitColor", "LABEL": "Digit colour", "TYPE": "color", "DEFAULT": [1.0, 1.0, 1.0, 1.0]},
        {"NAME": "backColor", "LABEL": "Background", "TYPE": "color", "DEFAULT": [0.0, 0.0, 0.0, 0.5]},
        {"NAME": "X_Position", "TYPE": "float", "DEFAULT": 0.5},
        {"NAME": "Y_Position", "TYPE": "float", "DEFAULT": 0.75}
    ]
}*/

// Seven segments a..g as bits 0..6, per digit 0..9.
const int segments[10] = int[10](63, 6, 91, 79, 102, 109, 125, 7, 127, 111);

float bar(vec2 p, vec2 a, vec2 b, float w)
{
    vec2 pa = p - a, ba = b - a;
    float h = clamp(dot(pa, ba) / dot(ba, ba), 0.0, 1.0);
    return step(length(pa - ba * h), w);
}

// p in a cell 0..1 wide and 0..2 high.
float digit(vec2 p, int d)
{
    int s = segments[d];
    float w = 0.09;
    float on = 0.0;
    if ((s & 1) != 0) on = max(on, bar(p, vec2(0.2, 1.85), vec2(0.8, 1.85), w));
    if ((s & 2) != 0) on = max(on, bar(p, vec2(0.85, 1.8), vec2(0.85, 1.05), w));
    if ((s & 4) != 0) on = max(on, bar(p, vec2(0.85, 0.95), vec2(0.85, 0.2), w));
    if ((s & 8) != 0) on = max(on, bar(p, vec2(0.2, 0.15), vec2(0.8, 0.15), w));
    if ((s & 16) != 0) on = max(on, bar(p, vec2(0.15, 0.95), vec2(0.15, 0.2), w));
    if ((s & 32) != 0) on = max(on, bar(p, vec2(0.15, 1.8), vec2(0.15, 1.05), w));
    if ((s & 64) != 0) on = max(on, bar(p, vec2(0.2, 1.0), vec2(0.8, 1.0), w));
    return on;
}

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    float h = height * RENDERSIZE.y;
    float cellW = h * 0.5;
    int chars = showSeconds ? 8 : 5;
    vec2 size = vec2(cellW * float(chars) + h * 0.3, h * 1.2);
    // The position moves the clock, but never past the frame's edge: narrow frames keep the seconds.
    vec2 origin = clamp((vec2(X_Position, Y_Position) * 0.5 + 0.5) * RENDERSIZE, vec2(0.0), max(RENDERSIZE - size, vec2(0.0)));
    vec2 q = gl_FragCoord.xy - origin;
    if (any(lessThan(q, vec2(0.0))) || any(greaterThanEqual(q, size))) {
        gl_FragColor = c;
        return;
    }
    vec3 rgb = mix(c.rgb, backColor.rgb, backColor.a);
    float a = max(c.a, backColor.a);
    int seconds = int(DATE.w);
    int hours = seconds / 3600;
    if (!twentyFourHour) hours = (hours + 11) % 12 + 1;
    int values[6] = int[6](hours / 10, hours % 10, (seconds / 60) % 60 / 10, (seconds / 60) % 10, (seconds % 60) / 10, seconds % 10);
    vec2 local = q - vec2(h * 0.15, h * 0.1);
    int index = int(floor(local.x / cellW));
    vec2 cell = vec2(fract(local.x / cellW), local.y / cellW * 0.5);
    cell = vec2(cell.x * 1.25 - 0.1, cell.y * 2.0 / 1.0);
    float on = 0.0;
    if (index >= 0 && index < chars) {
        if (index == 2 || index == 5) {
            on = step(length(cell - vec2(0.5, 0.6)), 0.12) + step(length(cell - vec2(0.5, 1.4)), 0.12);
        } else {
            int slot = index < 2 ? index : index < 5 ? index - 1 : index - 2;
            on = digit(cell, values[slot]);
        }
    }
    on = clamp(on, 0.0, 1.0) * digitColor.a;
    gl_FragColor = vec4(mix(rgb, digitColor.rgb, on), max(a, on));
}
