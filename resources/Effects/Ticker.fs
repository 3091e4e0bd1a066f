/*{
    "DESCRIPTION": "A line of text that scrolls across a bar, like a news ticker.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Titles"],
    "CHANGES_ONLY": {"Y": "($Y_Position * 0.5 + 0.5) * $HEIGHT - max($Message_HEIGHT * 1.3, $HEIGHT * 0.03) * 0.5",
                     "HEIGHT": "max($Message_HEIGHT * 1.3, $HEIGHT * 0.03)"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "Message", "LABEL": "Message", "TYPE": "text", "DEFAULT": "Breaking news: Lumaveil is live"},
        {"NAME": "Font_Name", "LABEL": "Font", "TYPE": "text", "DEFAULT": "DejaVu Sans"},
        {"NAME": "Font_Size", "LABEL": "Text size", "TYPE": "float", "DEFAULT": 0.07},
        {"NAME": "speed", "LABEL": "Speed (screens per second)", "TYPE": "float", "DEFAULT": 0.15, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "textColor", "LABEL": "Text colour", "TYPE": "color", "DEFAULT": [1.0, 1.0, 1.0, 1.0]},
        {"NAME": "barColor", "LABEL": "Bar colour", "TYPE": "color", "DEFAULT": [0.6, 0.0, 0.0, 0.9]},
        {"NAME": "Y_Position", "LABEL": "Height on screen", "TYPE": "float", "DEFAULT": -0.92}
    ]
}*/

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    vec2 s = IMG_SIZE(Message);
    float barHeight = max(s.y * 1.3, RENDERSIZE.y * 0.03);
    float bottom = (Y_Position * 0.5 + 0.5) * RENDERSIZE.y - barHeight * 0.5;
    vec2 p = gl_FragCoord.xy;
    if (p.y < bottom || p.y >= bottom + barHeight) {
        gl_FragColor = c;
        return;
    }
    vec3 rgb = mix(c.rgb, barColor.rgb, barColor.a);
    float a = max(c.a, barColor.a);
    float travel = RENDERSIZE.x + s.x;
    float x = RENDERSIZE.x - mod(TIME * speed * RENDERSIZE.x, travel);
    vec2 uv = (p - vec2(x, bottom + (barHeight - s.y) * 0.5)) / s;
    if (s.x > 1.0 && all(greaterThanEqual(uv, vec2(0.0))) && all(lessThan(uv, vec2(1.0)))) {
        float t = IMG_NORM_PIXEL(Message, uv).a * textColor.a;
        rgb = mix(rgb, textColor.rgb, t);
    }
    gl_FragColor = vec4(rgb, a);
}
