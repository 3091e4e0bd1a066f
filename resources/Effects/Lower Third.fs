/*{
    "DESCRIPTION": "A name and a title line on a coloured bar, for introducing a speaker.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Titles"],
    "CHANGES_ONLY": {"X": "floor(($X_Position * 0.5 + 0.5) * $WIDTH)", "Y": "floor(($Y_Position * 0.5 + 0.5) * $HEIGHT)",
                     "WIDTH": "max($Line1_WIDTH, $Line2_WIDTH) + 2 * floor($HEIGHT * 0.02) + floor(floor($HEIGHT * 0.02) * 0.5)",
                     "HEIGHT": "$Line1_HEIGHT + $Line2_HEIGHT + 2 * floor($HEIGHT * 0.02)"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "Line1", "LABEL": "Name", "TYPE": "text", "DEFAULT": "Jane Doe"},
        {"NAME": "Line2", "LABEL": "Title", "TYPE": "text", "DEFAULT": "Presenter", "FONT_SCALE": 0.65},
        {"NAME": "Font_Name", "LABEL": "Font", "TYPE": "text", "DEFAULT": "DejaVu Sans"},
        {"NAME": "Font_Size", "LABEL": "Text size", "TYPE": "float", "DEFAULT": 0.09},
        {"NAME": "textColor", "LABEL": "Text colour", "TYPE": "color", "DEFAULT": [1.0, 1.0, 1.0, 1.0]},
        {"NAME": "barColor", "LABEL": "Bar colour", "TYPE": "color", "DEFAULT": [0.05, 0.1, 0.3, 0.85]},
        {"NAME": "accentColor", "LABEL": "Accent colour", "TYPE": "color", "DEFAULT": [1.0, 0.6, 0.0, 1.0]},
        {"NAME": "X_Position", "TYPE": "float", "DEFAULT": -0.9},
        {"NAME": "Y_Position", "TYPE": "float", "DEFAULT": -0.85}
    ]
}*/

float textAlpha(sampler2D text, vec2 q, vec2 at)
{
    vec2 uv = (q - at) / IMG_SIZE(text);
    if (any(lessThan(uv, vec2(0.0))) || any(greaterThanEqual(uv, vec2(1.0))))
        return 0.0;
    return IMG_NORM_PIXEL(text, uv).a;
}

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    vec2 s1 = IMG_SIZE(Line1);
    vec2 s2 = IMG_SIZE(Line2);
    // Both lines empty: nothing to show.
    if (s1.x <= 1.0 && s2.x <= 1.0) {
        gl_FragColor = c;
        return;
    }
    // Whole pixels keep the text as sharp as the host drew it.
    float pad = floor(RENDERSIZE.y * 0.02);
    float accent = floor(pad * 0.5);
    vec2 origin = floor((vec2(X_Position, Y_Position) * 0.5 + 0.5) * RENDERSIZE);
    vec2 box = vec2(max(s1.x, s2.x) + 2.0 * pad + accent, s1.y + s2.y + 2.0 * pad);
    vec2 q = gl_FragCoord.xy - origin;
    vec3 rgb = c.rgb;
    float a = c.a;
    if (all(greaterThanEqual(q, vec2(0.0))) && all(lessThan(q, box))) {
        vec4 fill = q.x < accent ? accentColor : barColor;
        rgb = mix(rgb, fill.rgb, fill.a);
        a = max(a, fill.a);
        float t = max(textAlpha(Line1, q, vec2(accent + pad, pad + s2.y)), textAlpha(Line2, q, vec2(accent + pad, pad)));
        rgb = mix(rgb, textColor.rgb, t * textColor.a);
        a = max(a, t * textColor.a);
    }
    gl_FragColor = vec4(rgb, a);
}
