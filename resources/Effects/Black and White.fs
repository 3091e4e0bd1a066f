/*{
    "DESCRIPTION": "Black and white or sepia toned picture.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Color Effect"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "style", "LABEL": "Style", "TYPE": "long", "DEFAULT": 0, "VALUES": [0, 1], "LABELS": ["Black and white", "Sepia"]},
        {"NAME": "amount", "LABEL": "Strength", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.0, "MAX": 1.0}
    ]
}*/

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    float luma = dot(c.rgb, vec3(0.2126, 0.7152, 0.0722));
    vec3 toned = style == 1 ? clamp(vec3(luma * 1.07, luma * 0.74, luma * 0.43) + vec3(0.08, 0.05, 0.0), 0.0, 1.0)
                            : vec3(luma);
    gl_FragColor = vec4(mix(c.rgb, toned, amount), c.a);
}
