// SPDX-License-Identifier: Apache-2.0
// Footprints, seams and camera positions over the map, and the photo that is pointed at.
import Feature from 'ol/Feature.js';
import LineString from 'ol/geom/LineString.js';
import MultiLineString from 'ol/geom/MultiLineString.js';
import Point from 'ol/geom/Point.js';
import Polygon from 'ol/geom/Polygon.js';
import VectorLayer from 'ol/layer/Vector.js';
import VectorSource from 'ol/source/Vector.js';
import { Circle, Fill, RegularShape, Stroke, Style, Text } from 'ol/style.js';
import { css, photoColour } from './colours.js';

const stroke = (color, width, lineDash) => new Stroke({ color, width, lineDash });
const DARK = 'rgba(12, 20, 28, 0.75)';
const LIGHT = '#ffffff';
/** Camera numbers are written from this many ground units per map pixel on, by their spacing. */
const LABEL_SPACING = 34;

/** A light line on a dark one shows on every picture. */
const cased = (width) => [
  new Style({ stroke: stroke(DARK, width + 2) }),
  new Style({ stroke: stroke(LIGHT, width) }),
];

function layerOf(features, style, zIndex, className) {
  return new VectorLayer({
    source: new VectorSource({ features }),
    style,
    visible: false,
    zIndex,
    className,
    updateWhileAnimating: true,
    updateWhileInteracting: true,
  });
}

const ring = (frame) => [...frame, frame[0]];

function seamFeature(report) {
  const { grid } = report;
  const lines = report.seams.map((flat) => {
    const line = [];
    for (let i = 0; i < flat.length; i += 2) {
      line.push([grid.minX + flat[i] * grid.cellX, grid.maxY - flat[i + 1] * grid.cellY]);
    }
    return line;
  });
  return new Feature(new MultiLineString(lines));
}

/** Mean distance between neighbouring cameras, were they spread evenly. */
function spacing(photos, extent) {
  const area = (extent[2] - extent[0]) * (extent[3] - extent[1]);
  return Math.sqrt(area / Math.max(photos.length, 1));
}

function cameraStyle(report, extent) {
  const apart = spacing(report.photos, extent);
  const cross = (color, width) =>
    new RegularShape({
      points: 4,
      radius: 7,
      radius2: 0,
      angle: Math.PI / 4,
      stroke: stroke(color, width),
    });
  return (feature, resolution) => {
    const photo = feature.get('photo');
    const text =
      apart / resolution > LABEL_SPACING
        ? new Text({
            text: String(photo.number),
            offsetY: -15,
            font: '600 12px system-ui, sans-serif',
            fill: new Fill({ color: LIGHT }),
            stroke: stroke(DARK, 3),
          })
        : undefined;
    if (photo.done === false) {
      return [
        new Style({ image: cross(LIGHT, 6) }),
        new Style({ image: cross('#d11a3a', 3), text }),
      ];
    }
    const image = new Circle({
      radius: 5,
      fill: new Fill({ color: css(photoColour(photo.number)) }),
      stroke: stroke(LIGHT, 2),
    });
    return new Style({ image, text });
  };
}

/** @returns layers by name, and what marks a photo */
export function makeOverlays(report, extent) {
  const photos = report.photos;
  const framed = photos.filter((photo) => photo.frame);
  const footprints = layerOf(
    framed.map((photo) => new Feature(new Polygon([ring(photo.frame)]))),
    cased(1),
    2,
    'footprints',
  );
  const seams = layerOf([seamFeature(report)], cased(1.2), 3, 'seams');
  const cameras = layerOf(
    photos.map((photo) => {
      const feature = new Feature(new Point(photo.camera.slice(0, 2)));
      feature.set('photo', photo);
      return feature;
    }),
    cameraStyle(report, extent),
    5,
    'cameras',
  );
  const mark = layerOf([], null, 4, 'mark');
  mark.setVisible(true);
  return { footprints, seams, cameras, mark };
}

/** Marks a photo's frame and camera; null: none. */
export function markPhoto(layer, photo) {
  const source = layer.getSource();
  if (layer.get('number') === (photo?.number ?? 0)) return;
  layer.set('number', photo?.number ?? 0);
  source.clear();
  if (!photo) return;
  const camera = photo.camera.slice(0, 2);
  const accent = '#ffd23f';
  if (photo.frame) {
    const frame = new Feature(new LineString(ring(photo.frame)));
    frame.setStyle([
      new Style({ stroke: stroke(DARK, 5) }),
      new Style({ stroke: stroke(accent, 2.5) }),
    ]);
    source.addFeature(frame);
  }
  const point = new Feature(new Point(camera));
  point.setStyle(
    new Style({
      image: new Circle({
        radius: 6,
        fill: new Fill({ color: accent }),
        stroke: stroke(DARK, 2),
      }),
    }),
  );
  source.addFeature(point);
}

/** Ground box of a photo: its frame, or its camera's surroundings. */
export function photoExtent(photo, extent) {
  const points = photo.frame ?? [photo.camera];
  const margin = photo.frame ? 0 : (extent[2] - extent[0]) / 10;
  const xs = points.map((p) => p[0]);
  const ys = points.map((p) => p[1]);
  return [
    Math.min(...xs) - margin,
    Math.min(...ys) - margin,
    Math.max(...xs) + margin,
    Math.max(...ys) + margin,
  ];
}
