/*{
    "DESCRIPTION": "Makes a green or blue background transparent, with spill suppression for the edges.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Keying"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "keyMode", "LABEL": "Background", "TYPE": "long", "DEFAULT": 0, "VALUES": [0, 1, 2],
         "LABELS": ["Green screen", "Blue screen", "Custom colour"],
         "PRESETS": {"0": {"keyColor": [0.0, 1.0, 0.0, 1.0]}, "1": {"keyColor": [0.0, 0.0, 1.0, 1.0]}}},
        {"NAME": "keyColor", "LABEL": "Key colour (with Custom colour)", "TYPE": "color", "DEFAULT": [0.0, 1.0, 0.0, 1.0]},
        {"NAME": "similarity", "LABEL": "Similarity", "TYPE": "float", "DEFAULT": 0.4, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "smoothness", "LABEL": "Edge smoothness", "TYPE": "float", "DEFAULT": 0.08, "MIN": 0.0, "MAX": 1.0},
        {"NAME": "spill", "LABEL": "Spill suppression", "TYPE": "float", "DEFAULT": 0.5, "MIN": 0.0, "MAX": 1.0}
    ]
}*/

vec2 chroma(vec3 c)
{
    return vec2(-0.168736 * c.r - 0.331264 * c.g + 0.5 * c.b, 0.5 * c.r - 0.418688 * c.g - 0.081312 * c.b);
}

void main()
{
    vec4 px = IMG_THIS_PIXEL(inputImage);
    vec3 key = keyMode == 0 ? vec3(0.0, 1.0, 0.0) : keyMode == 1 ? vec3(0.0, 0.0, 1.0) : keyColor.rgb;
    // Chroma distances run from 0 to about 0.7; similarity covers that range.
    float d = distance(chroma(px.rgb), chroma(key)) / 0.7;
    float alpha = smoothness > 0.0 ? smoothstep(similarity, similarity + smoothness, d) : step(similarity, d);
    vec3 rgb = px.rgb;
    // Spill: pull the key's channel down towards the other two where it dominates.
    if (keyMode != 2) {
        int k = keyMode == 0 ? 1 : 2;
        float others = keyMode == 0 ? max(rgb.r, rgb.b) : max(rgb.r, rgb.g);
        float excess = max(rgb[k] - others, 0.0);
        rgb[k] -= excess * spill;
    }
    gl_FragColor = alpha > 0.0 ? vec4(rgb, px.a * alpha) : vec4(0.0);
}
