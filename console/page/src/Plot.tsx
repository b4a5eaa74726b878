// SPDX-License-Identifier: MIT
// The live plot of a stream's messages.
import { useEffect, useRef } from 'preact/hooks';
import uPlot from 'uplot';
import 'uplot/dist/uPlot.min.css';
import { Points } from './model';

export type Axis = 'number' | 'time';

interface Props {
  points: Points;
  axis: Axis;
  shown: boolean[]; // of the three words
  isPaused: boolean;
  label: string;
  /** Gets the plot's controls. */
  onReady: (controls: Controls) => void;
}

export interface Controls {
  /** Shows so many times as much of the axis as now. */
  zoom: (factor: number) => void;
  /** Moves by a part of what is shown. */
  move: (part: number) => void;
  whole: () => void;
}

const names = ['First value', 'Second value', 'Third value'];

export function Plot({ points, axis, shown, isPaused, label, onReady }: Props) {
  const place = useRef<HTMLDivElement>(null);
  const paused = useRef(isPaused);
  paused.current = isPaused;

  useEffect(() => {
    const div = place.current as HTMLDivElement;
    let isWhole = true;
    let drawn = -1;
    let plot: uPlot;
    const data = (): uPlot.AlignedData => [
      (axis === 'number' ? points.numbers : points.times).slice(),
      ...points.words.map((column) => column.slice()),
    ];
    const make = () => {
      const colour = (name: string) => getComputedStyle(div).getPropertyValue(name).trim();
      const line = { stroke: colour('--muted'), grid: { stroke: colour('--line'), width: 1 }, ticks: { stroke: colour('--line') } };
      plot = new uPlot(
        {
          width: div.clientWidth,
          height: 240,
          scales: { x: { time: false } },
          axes: [line, { ...line, size: 64 }],
          cursor: { drag: { x: true, y: false } },
          legend: { show: false },
          series: [
            {},
            ...names.map((name, i) => ({
              label: name, show: shown[i] ?? true, stroke: colour(`--line-${i + 1}`), width: 1.5, points: { size: 4 },
              ...(i === 0 ? {} : { dash: i === 1 ? [8, 4] : [2, 3] }),
            })),
          ],
          hooks: { setSelect: [() => (isWhole = false)] },
        },
        data(), div);
      plot.over.addEventListener('dblclick', () => (isWhole = true));
    };
    const setRange = (from: number, to: number) => {
      isWhole = false;
      plot.setScale('x', { min: from, max: to });
    };
    const range = () => ({ min: plot.scales.x?.min ?? 0, max: plot.scales.x?.max ?? 1 });
    const draw = () => {
      const count = points.numbers.length === 0 ? 0 : (points.numbers[points.numbers.length - 1] as number) + 1;
      if (paused.current || count === drawn) return;
      drawn = count;
      const { min, max } = range();
      plot.setData(data(), isWhole);
      if (!isWhole) plot.setScale('x', { min, max });
    };
    make();
    onReady({
      zoom: (factor) => {
        const { min, max } = range();
        const half = ((max - min) * factor) / 2;
        setRange((min + max) / 2 - half, (min + max) / 2 + half);
      },
      move: (part) => {
        const { min, max } = range();
        setRange(min + (max - min) * part, max + (max - min) * part);
      },
      whole: () => {
        isWhole = true;
        plot.setData(plot.data, true);
      },
    });
    const timer = setInterval(draw, 100);
    const size = new ResizeObserver(() => plot.setSize({ width: div.clientWidth, height: 240 }));
    size.observe(div);
    const scheme = matchMedia('(prefers-color-scheme: dark)');
    const remake = () => {
      plot.destroy();
      make();
    };
    scheme.addEventListener('change', remake);
    return () => {
      clearInterval(timer);
      size.disconnect();
      scheme.removeEventListener('change', remake);
      plot.destroy();
    };
  }, [points, axis, shown.join()]);

  return <div class="plot" ref={place} role="img" aria-label={label} />;
}
