// A file's text, by studio/build.mjs.
declare module "*?text" {
  const text: string;
  export default text;
}
