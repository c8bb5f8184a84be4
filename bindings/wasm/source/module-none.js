// In place of the module as text, where the file is all there is.

export const compile = async () => {
  throw new Error('zentadbpp.wasm is not found beside its script');
};
