/*{
    "DESCRIPTION": "One large line of text, centred, with an optional shadow.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Titles"],
    "CHANGES_ONLY": {"X": "floor(($X_Position * 0.5 + 0.5) * $WIDTH - $Title_WIDTH * 0.5)",
                     "Y": "floor(($Y_Position * 0.5 + 0.5) * $HEIGHT - $Title_HEIGHT * 0.5) - $HEIGHT * 0.006",
                     "WIDTH": "$Title_WIDTH + $HEIGHT * 0.006", "HEIGHT": "$Title_HEIGHT + $HEIGHT * 0.006"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "Title", "LABEL": "Text", "TYPE": "text", "DEFAULT": "Welcome"},
        {"NAME": "Font_Name", "LABEL": "Font", "TYPE": "text", "DEFAULT": "DejaVu Sans"},
        {"NAME": "Font_Size", "LABEL": "Text size", "TYPE": "float", "DEFAULT": 0.2},
        {"NAME": "textColor", "LABEL": "Text colour", "TYPE": "color", "DEFAULT": [1.0, 1.0, 1.0, 1.0]},
        {"NAME": "shadow", "LABEL": "Shadow", "TYPE": "bool", "DEFAULT": true},
        {"NAME": "X_Position", "TYPE": "float", "DEFAULT": 0.0},
        {"NAME": "Y_Position", "TYPE": "float", "DEFAULT": 0.0}
    ]
}*/

float textAlpha(vec2 q)
{
    vec2 uv = q / IMG_SIZE(Title);
    if (any(lessThan(uv, vec2(0.0))) || any(greaterThanEqual(uv, vec2(1.0))))
        return 0.0;
    return IMG_NORM_PIXEL(Title, uv).a;
}

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    vec2 centre = (vec2(X_Position, Y_Position) * 0.5 + 0.5) * RENDERSIZE;
    vec2 q = gl_FragCoord.xy - floor(centre - IMG_SIZE(Title) * 0.5);
    vec3 rgb = c.rgb;
    float a = c.a;
    if (shadow) {
        float s = textAlpha(q + vec2(-1.0, 1.0) * RENDERSIZE.y * 0.006) * 0.6;
        rgb = mix(rgb, vec3(0.0), s);
        a = max(a, s);
    }
    float t = textAlpha(q) * textColor.a;
    gl_FragColor = vec4(mix(rgb, textColor.rgb, t), max(a, t));
}
